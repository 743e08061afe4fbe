#include "program/evaluate/result_output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "keelstone/expectation.h"
#include "keelstone/json_value.h"
#include "keelstone/text_escape.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kShownNameBytes = 100;
constexpr std::size_t kShownValueBytes = 120;
constexpr std::string_view kEmptyResult = R"({"ruleItems":[],"valueItems":[],"alertItems":[]})";

void AppendMember(std::string& out, std::string_view name, std::string_view text) {
  out.append(",\"").append(name).append("\":");
  AppendJsonString(out, text);
}

std::string UtcText(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  std::array<char, 40> text{};
  if (::gmtime_r(&time, &parts) == nullptr) return std::to_string(seconds);
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%SZ", &parts);
  return text.data();
}

/// "2023-11-14 22:13:20Z ALERT  r1 eth0 source variable": how every line begins.
std::string LineStart(std::int64_t time, std::string_view kind, const ObjectKey& object) {
  std::string line = UtcText(time);
  line.append(" ").append(kind);
  for (const std::string_view name :
       {object.device, object.interface, object.source, object.param, object.variable}) {
    if (name.empty()) continue;
    line.push_back(' ');
    AppendPrintable(line, name, kShownNameBytes);
  }
  return line;
}

ObjectKey ObjectOf(const ParsedRun& run, std::string_view interface, std::string_view variable) {
  return {run.domain, run.device, run.source, run.param, interface, variable};
}

std::string AlertsSince(const Episode& episode) {
  return std::to_string(episode.count) + (episode.count == 1 ? " alert since " : " alerts since ") +
         UtcText(episode.first);
}

void AppendEpisode(std::string& out, const ParsedRun& run, const RunOutcome& outcome,
                   const EpisodeChange& change) {
  const VarInfo& variable = run.variables[change.variable];
  const ObjectKey object = ObjectOf(run, variable.interfaceValue, variable.variableName);
  if (change.step == EpisodeStep::kOpened) {
    out += LineStart(run.time, "ALERT ", object) + " ";
    AppendPrintable(out, outcome.explanations[change.explanation].Predicate());
    out.push_back('\n');
  } else if (change.step == EpisodeStep::kCleared) {
    out += LineStart(run.time, "CLEAR ", object) + " fits again";
    if (variable.dataType != KSDataTable) {
      out.append(" with ");
      AppendPrintable(out, variable.valueText, kShownValueBytes);
    }
    out += ", after " + AlertsSince(change.episode) + "\n";
  }
}

void AppendExpectation(std::string& out, int type, const std::string& parameter) {
  AppendPrintable(out, KSExpectation::Of(static_cast<EnumRuleType>(type), parameter).words);
}

void AppendGoldenValue(std::string& out, const ParsedRun& run,
                       const KSValueUpdateResultItem& item) {
  out += LineStart(run.time, "GOLDEN", ObjectOf(run, item.strInterfaceName, item.strVariableName));
  out.append(item.nRuleId == kTableMd5 ? ": the reference table is " : ": the reference value is ");
  AppendPrintable(out, item.strJsonValue, kShownValueBytes);
  if (item.nValueTime != run.time) out.append(" of ").append(UtcText(item.nValueTime));
}

void AppendRule(std::string& out, const ParsedRun& run, const KSRuleUpdateResultItem& item) {
  out += LineStart(run.time, "RULE  ", ObjectOf(run, item.strInterfaceName, item.strVariableName));
  out.append(": learned: ");
  AppendExpectation(out, item.nRuleId, item.strRuleAlgParam);
}

bool IsCleared(const EpisodeChange& change) { return change.step == EpisodeStep::kCleared; }

/// Why values were refused, and how many were judged before: only what there is.
void AppendIntake(std::string& out, const ParsedRun& run, const RunOutcome& outcome) {
  for (std::size_t i = 0; i < outcome.refused.size(); ++i) {
    const VarInfo& variable = run.variables[outcome.refused[i].variable];
    out.append(i == 0 ? ",\"refused\":[{\"device\":" : ",{\"device\":");
    AppendJsonString(out, run.device);
    AppendMember(out, "source", run.source);
    AppendMember(out, "interface", variable.interfaceValue);
    AppendMember(out, "variable", variable.variableName);
    AppendMember(out, "reason", outcome.refused[i].reason);
    out.push_back('}');
  }
  if (!outcome.refused.empty()) out.push_back(']');
  if (outcome.repeated > 0) out.append(",\"repeated\":").append(std::to_string(outcome.repeated));
}

void AppendRefused(std::string& out, const ParsedRun& run, const RefusedValue& refused) {
  const VarInfo& variable = run.variables[refused.variable];
  out +=
      LineStart(run.time, "REFUSE", ObjectOf(run, variable.interfaceValue, variable.variableName));
  out.append(": ").append(refused.reason).push_back('\n');
}

void AppendExplanations(std::string& out, const ParsedRun& run, const RunOutcome& outcome,
                        const std::vector<EpisodeChange>& episodes) {
  out.append(",\"explanations\":[");
  for (std::size_t i = 0; i < outcome.explanations.size(); ++i) {
    if (i != 0) out.push_back(',');
    out += outcome.explanations[i].ToJsonString();
  }
  JsonValue cleared(JsonType::Array);
  for (const EpisodeChange& change : episodes) {
    if (!IsCleared(change)) continue;
    const VarInfo& variable = run.variables[change.variable];
    JsonValue& element = cleared.append(JsonValue(JsonType::Object));
    element["variable"] = variable.variableName;
    element["interface"] = variable.interfaceValue;
    element["alerts"] = change.episode.count;
    element["firstTime"] = change.episode.first;
    element["lastTime"] = change.episode.last;
  }
  out.append("],\"cleared\":").append(cleared.toString({.replaceInvalidUtf8 = true}));
}

}  // namespace

RunTally TallyOf(const RunOutcome& outcome) {
  RunTally tally;
  tally.variables = outcome.variables;
  tally.rejected = outcome.rejected.size();
  tally.repeated = outcome.repeated;
  if (outcome.results) {
    tally.alerts = outcome.results->GetKSAlertResults().size();
    tally.goldenValues = outcome.results->GetKSValueUpdateResults().size();
    tally.rules = outcome.results->GetKSRuleUpdateResults().size();
  }
  return tally;
}

std::string JsonOutput(const ParsedRun& run, const RunOutcome& outcome, bool all,
                       const std::vector<EpisodeChange>* episodes) {
  const RunTally tally = TallyOf(outcome);
  const bool isEmpty =
      tally.alerts + tally.goldenValues + tally.rules + tally.rejected + tally.repeated == 0;
  const bool isCleared =
      episodes != nullptr && std::any_of(episodes->begin(), episodes->end(), IsCleared);
  if (isEmpty && !isCleared && !all) return {};
  std::string out = "{\"time\":" + std::to_string(run.time);
  AppendMember(out, "domain", run.domain);
  AppendMember(out, "device", run.device);
  AppendMember(out, "source", run.source);
  AppendMember(out, "param", run.param);
  out.append(outcome.blocked ? ",\"blocked\":true" : ",\"blocked\":false");
  out.append(",\"variables\":").append(std::to_string(outcome.variables));
  out.append(",\"rejected\":[");
  for (std::size_t i = 0; i < outcome.rejected.size(); ++i) {
    if (i != 0) out.push_back(',');
    AppendJsonString(out, outcome.rejected[i]);
  }
  out.append("],\"result\":");
  out.append(outcome.results ? outcome.results->ToJsonString() : std::string(kEmptyResult));
  if (episodes != nullptr) AppendExplanations(out, run, outcome, *episodes);
  AppendIntake(out, run, outcome);
  return out.append("}\n");
}

std::string TextOutput(const ParsedRun& run, const RunOutcome& outcome,
                       const std::vector<EpisodeChange>& episodes) {
  std::string out;
  for (const RefusedValue& refused : outcome.refused) AppendRefused(out, run, refused);
  if (!outcome.results) return out;
  for (const EpisodeChange& change : episodes) AppendEpisode(out, run, outcome, change);
  for (const auto& item : outcome.results->GetKSValueUpdateResults()) {
    AppendGoldenValue(out, run, *item);
    out.push_back('\n');
  }
  for (const auto& item : outcome.results->GetKSRuleUpdateResults()) {
    AppendRule(out, run, *item);
    out.push_back('\n');
  }
  return out;
}

std::string OpenEpisodeLine(const ObjectKey& object, const Episode& episode) {
  std::string out = LineStart(episode.last, "OPEN  ", object);
  out += " ";
  AppendPrintable(out, episode.note);
  return out + "; " + AlertsSince(episode) + "\n";
}

}  // namespace keelstone::host
