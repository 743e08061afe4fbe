#include "host/result_output.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "platform/json_reader.h"
#include "platform/text_escape.h"
#include "results/expectation.h"

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
std::string LineStart(const ParsedRun& run, std::string_view kind, const std::string& interface,
                      const std::string& variable) {
  std::string line = UtcText(run.time);
  line.append(" ").append(kind);
  for (const std::string* name : {&run.device, &interface, &run.source, &run.param, &variable}) {
    if (name->empty()) continue;
    line.push_back(' ');
    AppendPrintable(line, *name, kShownNameBytes);
  }
  return line;
}

void AppendExpectation(std::string& out, int type, const std::string& parameter) {
  AppendPrintable(out, KSExpectation::Of(static_cast<EnumRuleType>(type), parameter).words);
}

void AppendAlert(std::string& out, const ParsedRun& run, const KSAlertData& alert) {
  out += LineStart(run, "ALERT ", alert.GetInterfaceValue(), alert.GetVaraibleName());
  JsonValue info;
  if (!JsonReader::Parse(alert.GetAlertInfo(), info) || !info.isObject()) return;
  const JsonValue* type = info.find("_t");
  const JsonValue* parameter = info.find("_p");
  const JsonValue* value = info.find("_v");
  const bool isTable = type != nullptr && type->isInt() && type->asInt() == kTableMd5;
  if (isTable) out.append(": the table has changed");
  if (value != nullptr && value->isString()) {
    out.append(isTable ? ", its digest is " : " = ");
    AppendPrintable(out, value->stringRef(), kShownValueBytes);
  }
  if (type != nullptr && type->isInt() && parameter != nullptr && parameter->isString()) {
    out.append(isTable ? ", expected " : ": expected ");
    AppendExpectation(out, type->asInt(), parameter->stringRef());
  }
}

void AppendGoldenValue(std::string& out, const ParsedRun& run,
                       const KSValueUpdateResultItem& item) {
  out += LineStart(run, "GOLDEN", item.strInterfaceName, item.strVariableName);
  out.append(item.nRuleId == kTableMd5 ? ": the reference table is " : ": the reference value is ");
  AppendPrintable(out, item.strJsonValue, kShownValueBytes);
  if (item.nValueTime != run.time) out.append(" of ").append(UtcText(item.nValueTime));
}

void AppendRule(std::string& out, const ParsedRun& run, const KSRuleUpdateResultItem& item) {
  out += LineStart(run, "RULE  ", item.strInterfaceName, item.strVariableName);
  out.append(": learned: ");
  AppendExpectation(out, item.nRuleId, item.strRuleAlgParam);
}

}  // namespace

RunTally TallyOf(const RunOutcome& outcome) {
  RunTally tally;
  tally.variables = outcome.variables;
  tally.rejected = outcome.rejected.size();
  if (outcome.results) {
    tally.alerts = outcome.results->GetKSAlertResults().size();
    tally.goldenValues = outcome.results->GetKSValueUpdateResults().size();
    tally.rules = outcome.results->GetKSRuleUpdateResults().size();
  }
  return tally;
}

std::string JsonOutput(const ParsedRun& run, const RunOutcome& outcome, bool all) {
  const RunTally tally = TallyOf(outcome);
  const bool isEmpty = tally.alerts + tally.goldenValues + tally.rules + tally.rejected == 0;
  if (isEmpty && !all) return {};
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
  return out.append("}\n");
}

std::string TextOutput(const ParsedRun& run, const RunOutcome& outcome) {
  std::string out;
  if (!outcome.results) return out;
  for (const auto& alert : outcome.results->GetKSAlertResults()) {
    AppendAlert(out, run, *alert);
    out.push_back('\n');
  }
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

}  // namespace keelstone::host
