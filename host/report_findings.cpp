#include "host/report_findings.h"

#include <algorithm>
#include <utility>

#include "host/script_json.h"
#include "platform/json_reader.h"
#include "results/expectation.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kTextsSearched = 64;
constexpr std::size_t kTextBytes = 256U << 10U;  // of one variable, before long texts are cut
constexpr std::size_t kShortText = 1000;
constexpr std::size_t kFirstAlerts = 40;  // of an episode
constexpr std::size_t kNewestAlerts = 40;
constexpr std::size_t kEpisodes = 100;  // of a variable
constexpr std::size_t kChanges = 200;   // of its rule, of its golden value
constexpr std::size_t kSpans = 240;
constexpr std::int64_t kTimes = std::int64_t{1} << 40U;  // s before and after 1970 that are told

std::string TextMember(const JsonValue& object, std::string_view name) {
  const JsonValue* const member = object.find(name);
  return member != nullptr && member->isString() ? member->stringRef() : std::string();
}

std::int64_t IntMember(const JsonValue& object, std::string_view name, std::int64_t otherwise) {
  const JsonValue* const member = object.find(name);
  return member != nullptr && member->isInt64() ? member->asInt64() : otherwise;
}

int TypeMember(const JsonValue& object, std::string_view name) {
  const std::int64_t type = IntMember(object, name, kRuleTypeNone);
  return type >= 0 && type < kRuleTypeCount ? static_cast<int>(type) : kRuleTypeNone;
}

std::string Words(int type, const std::string& parameter) {
  // The value at which a first rule is learned is judged by it already.
  if (type == kRuleTypeNone) return "what was learned just now";
  return KSExpectation::Of(static_cast<EnumRuleType>(type), parameter).words;
}

template <class Item>
void AppendBounded(std::deque<Item>& items, Item item, std::size_t limit) {
  items.push_back(std::move(item));
  if (items.size() > limit) items.pop_front();
}

std::int64_t SpanStart(std::int64_t time, std::int64_t width) {
  const std::int64_t over = time % width;
  return time - (over < 0 ? over + width : over);
}

/// Whether an array of the line can be walked as such; absent counts as empty.
bool IsArrayOrAbsent(const JsonValue* value) {
  return value == nullptr || value->isNull() || value->isArray();
}

}  // namespace

std::size_t VariableFindings::Text(std::string_view text) {
  std::string shortened;
  if (textBytes > kTextBytes && text.size() > kShortText) {
    shortened.assign(text.substr(0, kShortText)).append("…");
    text = shortened;
  }
  const std::size_t oldest = texts.size() > kTextsSearched ? texts.size() - kTextsSearched : 0;
  for (std::size_t i = texts.size(); i > oldest; --i) {
    if (texts[i - 1] == text) return i - 1;
  }
  textBytes += text.size();
  texts.emplace_back(text);
  return texts.size() - 1;
}

void AlertHistogram::Add(std::int64_t time) {
  ++counts_[SpanStart(time, width_)];
  while (counts_.size() > kSpans || (counts_.rbegin()->first - counts_.begin()->first) / width_ >=
                                        static_cast<std::int64_t>(kSpans)) {
    width_ *= 2;
    std::map<std::int64_t, std::uint64_t> wider;
    for (const auto& [start, count] : counts_) wider[SpanStart(start, width_)] += count;
    counts_.swap(wider);
  }
}

/// What a line says of its run.
struct ReportFindings::Line {
  JsonValue document;
  std::int64_t time = 0;
  UnitKey unit;
  bool blocked = false;
  std::int64_t variables = 0;
  std::int64_t repeated = 0;  // values that say nothing

  ReportKey Key(std::string interface, std::string variable) const {
    return {unit[0], unit[1], std::move(interface), unit[2], unit[3], std::move(variable)};
  }
  const JsonValue& Items(const char* list) const {
    static const JsonValue kNone(JsonType::Array);
    const JsonValue* const items = document.find("result")->find(list);
    return items != nullptr && items->isArray() ? *items : kNone;
  }
};

bool ReportFindings::ReadLine(std::string_view text, Line& line) {
  JsonParseError error;
  if (!JsonReader::Parse(text, line.document, &error, {.allowComments = false})) {
    fault_ = "not JSON: " + error.message + " at byte " + std::to_string(error.offset + 1);
    return false;
  }
  const JsonValue* const result = line.document.isObject() ? line.document.find("result") : nullptr;
  if (result == nullptr || !result->isObject()) {
    fault_ = "no result of `keelstone evaluate`: it has no \"result\"";
    return false;
  }
  for (const char* list : {"alertItems", "ruleItems", "valueItems"}) {
    if (IsArrayOrAbsent(result->find(list))) continue;
    fault_ = std::string("result.") + list + ": is no array";
    return false;
  }
  const JsonValue* const time = line.document.find("time");
  if (time == nullptr || !time->isInt64() || !line.document["device"].isString() ||
      !line.document["source"].isString()) {
    fault_ = "no result of `keelstone evaluate`: time, device and source are needed";
    return false;
  }
  line.time = std::clamp(time->asInt64(), -kTimes, kTimes);
  line.unit = {TextMember(line.document, "domain"), TextMember(line.document, "device"),
               TextMember(line.document, "source"), TextMember(line.document, "param")};
  const JsonValue* const blocked = line.document.find("blocked");
  line.blocked = blocked != nullptr && blocked->isBool() && blocked->asBool();
  line.variables = IntMember(line.document, "variables", 1);
  line.repeated = IntMember(line.document, "repeated", 0);
  return true;
}

bool ReportFindings::Take(std::string_view text, const std::vector<std::string>& domains) {
  Line line;
  if (!ReadLine(text, line)) return false;
  if (std::find(domains.begin(), domains.end(), line.unit[0]) == domains.end()) return true;
  ++lines_;
  ++runs_;
  from_ = std::min(from_, line.time);
  to_ = std::max(to_, line.time);
  Unit& unit = units_[line.unit];
  if (unit.lastTime && line.time > *unit.lastTime) {
    unit.spacing = std::min(unit.spacing, line.time - *unit.lastTime);
  }
  unit.lastTime = line.time;
  const JsonValue& alerts = line.Items("alertItems");
  const JsonValue& rules = line.Items("ruleItems");
  const JsonValue& goldenValues = line.Items("valueItems");
  const JsonValue* const rejected = line.document.find("rejected");
  const bool isRejectedEmpty = rejected == nullptr || rejected->empty();
  if (alerts.empty() && rules.empty() && goldenValues.empty() && isRejectedEmpty &&
      line.repeated == 0) {
    hasQuietRuns_ = true;
  }
  const JsonValue* explanations = line.document.find("explanations");
  for (std::size_t i = 0; i < alerts.size(); ++i) {
    static const JsonValue kNoExplanation;
    const bool has = explanations != nullptr && explanations->isArray() && i < explanations->size();
    const JsonValue& explanation =
        has ? std::as_const(*explanations)[i] : static_cast<const JsonValue&>(kNoExplanation);
    if (alerts[i].isObject()) TakeAlert(line, alerts[i], explanation, unit);
  }
  const JsonValue* const cleared = line.document.find("cleared");
  if (cleared != nullptr && cleared->isArray()) {
    ClearTold(line, *cleared, unit);
  } else {
    isEveryLineTold_ = false;
    ClearOthers(line, unit);
  }
  for (const JsonValue& item : rules) {
    if (item.isObject()) TakeRule(line, item);
  }
  for (const JsonValue& item : goldenValues) {
    if (item.isObject()) TakeGoldenValue(line, item);
  }
  const JsonValue* const refused = line.document.find("refused");
  if (refused == nullptr || !refused->isArray()) return true;
  for (const JsonValue& item : *refused) {
    if (item.isObject()) TakeRefused(line, item);
  }
  return true;
}

void ReportFindings::TakeAlert(const Line& line, const JsonValue& item,
                               const JsonValue& explanation, Unit& unit) {
  const auto [entry, isNew] = variables_.try_emplace(
      line.Key(TextMember(item, "InterfaceValue"), TextMember(item, "VaraibleName")));
  VariableFindings& variable = entry->second;
  FoundAlert alert;
  alert.time = line.time;
  alert.blocked = line.blocked;
  JsonValue info;
  if (!JsonReader::Parse(TextMember(item, "RuleParam"), info) || !info.isObject()) {
    info = JsonValue(JsonType::Object);
  }
  alert.type = TypeMember(info, "_t");
  const std::string parameter = TextMember(info, "_p");
  alert.parameter = variable.Text(parameter);
  alert.expectation = variable.Text(Words(alert.type, parameter));
  const JsonValue* const value = info.find("_v");
  if (value != nullptr && value->isString()) alert.value = variable.Text(value->stringRef());
  if (explanation.isObject()) alert.explanation = ScriptText(explanation);

  const bool isOpen =
      !variable.episodes.empty() && variable.episodes.back().end == FoundEpisode::End::kOpen;
  if (isOpen) {
    // A run that is missing between two alerts had no findings: this variable was fine in it.
    FoundEpisode& episode = variable.episodes.back();
    const std::int64_t pause = line.time - episode.last;
    const bool isTold = line.document.find("cleared") != nullptr;
    const bool isMissingRun = !hasQuietRuns_ && !isTold && unit.spacing < (pause * 2) / 5;
    if (isMissingRun) episode.end = FoundEpisode::End::kUnseen;
  } else {
    unit.open.emplace_back(&entry->first, &variable);
  }
  if (variable.episodes.empty() || variable.episodes.back().end != FoundEpisode::End::kOpen) {
    FoundEpisode episode;
    episode.opened = line.time;
    if (variable.episodes.size() == kEpisodes) ++variable.episodesDropped;
    AppendBounded(variable.episodes, std::move(episode), kEpisodes);
  }
  FoundEpisode& episode = variable.episodes.back();
  episode.last = line.time;
  ++episode.count;
  ++variable.alerts;
  ++alerts_;
  histogram_.Add(line.time);
  variable.lastLine = lines_;
  // An explanation is long: the first and the newest of an episode keep theirs.
  if (!episode.newest.empty()) episode.newest.back().explanation.clear();
  if (episode.first.size() > 1) episode.first.back().explanation.clear();
  if (episode.first.size() < kFirstAlerts) {
    episode.first.push_back(std::move(alert));
  } else {
    AppendBounded(episode.newest, std::move(alert), kNewestAlerts);
  }
}

void ReportFindings::ClearTold(const Line& line, const JsonValue& cleared, Unit& unit) {
  for (const JsonValue& item : cleared) {
    if (!item.isObject()) continue;
    const auto found =
        variables_.find(line.Key(TextMember(item, "interface"), TextMember(item, "variable")));
    if (found == variables_.end() || found->second.episodes.empty()) continue;
    FoundEpisode& episode = found->second.episodes.back();
    if (episode.end != FoundEpisode::End::kOpen || found->second.lastLine == lines_) continue;
    episode.end = FoundEpisode::End::kCleared;
    episode.cleared = line.time;
    std::erase_if(unit.open, [&](const auto& open) { return open.second == &found->second; });
  }
}

void ReportFindings::ClearOthers(const Line& line, Unit& unit) const {
  if (line.variables == 0) return;  // nothing was read
  if (line.repeated > 0) return;    // which values were judged is not told
  const JsonValue* const rejected = line.document.find("rejected");
  const auto isRejected = [&](const std::string& name) {
    if (rejected == nullptr || !rejected->isArray()) return false;
    for (const JsonValue& other : *rejected) {
      if (other.isString() && other.stringRef() == name) return true;
    }
    return false;
  };
  std::erase_if(unit.open, [&](const auto& open) {
    const auto& [key, variable] = open;
    if (variable->lastLine == lines_ || isRejected(key->back())) return false;
    FoundEpisode& episode = variable->episodes.back();
    episode.end = FoundEpisode::End::kCleared;
    episode.cleared = line.time;
    return true;
  });
}

void ReportFindings::TakeRule(const Line& line, const JsonValue& item) {
  VariableFindings& variable = variables_[line.Key(TextMember(item, "strInterfaceName"),
                                                   TextMember(item, "strVariableName"))];
  FoundRule rule;
  rule.time = line.time;
  rule.type = TypeMember(item, "nRuleId");
  const std::string parameter = TextMember(item, "strRuleAlgParam");
  rule.parameter = variable.Text(parameter);
  rule.expectation = variable.Text(Words(rule.type, parameter));
  AppendBounded(variable.rules, rule, kChanges);
}

void ReportFindings::TakeRefused(const Line& line, const JsonValue& item) {
  VariableFindings& variable =
      variables_[line.Key(TextMember(item, "interface"), TextMember(item, "variable"))];
  ++variable.refused;
  variable.refusedTime = line.time;
  variable.refusedReason = variable.Text(TextMember(item, "reason"));
}

void ReportFindings::TakeGoldenValue(const Line& line, const JsonValue& item) {
  VariableFindings& variable = variables_[line.Key(TextMember(item, "strInterfaceName"),
                                                   TextMember(item, "strVariableName"))];
  FoundGoldenValue golden;
  golden.time = IntMember(item, "nValueTime", line.time);
  golden.value = variable.Text(TextMember(item, "strJsonValue"));
  AppendBounded(variable.goldenValues, golden, kChanges);
}

}  // namespace keelstone::host
