#include "program/report/report_findings.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "keelstone/expectation.h"
#include "keelstone/json_reader.h"
#include "program/report/script_json.h"

namespace keelstone::host {

namespace {

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

std::uint64_t HashOf(std::string_view text) { return std::hash<std::string_view>()(text); }

/// Whether an array of the line can be walked as such; absent counts as empty.
bool IsArrayOrAbsent(const JsonValue* value) {
  return value == nullptr || value->isNull() || value->isArray();
}

void Clear(FoundVariable& variable, std::int64_t time) {
  variable.isOpen = false;
  if (variable.details == nullptr) return;
  FoundEpisode& episode = variable.details->episodes.back();
  episode.end = FoundEpisode::End::kCleared;
  episode.cleared = time;
}

}  // namespace

std::uint64_t DeviceHash(std::string_view domain, std::string_view device) {
  return HashOf(domain) * 31U + HashOf(device);
}

/// What a line says of its run.
struct ReportFindings::Line {
  JsonValue document;
  std::int64_t time = 0;
  std::array<std::string, 4> unit;  // domain, device, source, param
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

ReportFindings::ReportFindings(std::size_t limit) : limit_(limit), budget_(limit) {}

void ReportFindings::Restart(const Chosen& chosen) {
  budget_ = DetailBudget(limit_);
  chosen_ = &chosen;
  isCrowded_ = false;
  found_.clear();
  variables_.clear();
  units_.clear();
  histogram_ = {};
  lines_ = runs_ = alerts_ = 0;
  from_ = std::numeric_limits<std::int64_t>::max();
  to_ = std::numeric_limits<std::int64_t>::min();
  hasQuietRuns_ = false;
  isEveryLineTold_ = true;
}

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
  Unit& unit = units_[FingerprintOf(line.unit)];
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

FoundVariable* ReportFindings::Touch(ReportKey key) {
  const Fingerprint print = FingerprintOf(key);
  if (chosen_ != nullptr && !chosen_->contains(print)) return nullptr;
  const auto [entry, isNew] = found_.try_emplace(print);
  FoundVariable& variable = entry->second;
  if (!isNew) return &variable;
  variable.order = static_cast<std::uint32_t>(found_.size());
  variable.device = DeviceHash(key[0], key[1]);
  variable.name = HashOf(key.back());
  if (!isCrowded_ && found_.size() > limit_) {
    isCrowded_ = true;
    variables_.clear();
    for (auto& [other, found] : found_) found.details = nullptr;
  }
  if (!isCrowded_) variable.details = &variables_[std::move(key)];
  return &variable;
}

void ReportFindings::TakeAlert(const Line& line, const JsonValue& item,
                               const JsonValue& explanation, Unit& unit) {
  ++alerts_;
  histogram_.Add(line.time);
  FoundVariable* const variable =
      Touch(line.Key(TextMember(item, "InterfaceValue"), TextMember(item, "VaraibleName")));
  if (variable == nullptr) return;
  bool opens = !variable->isOpen;
  if (variable->isOpen) {
    // A run that is missing between two alerts had no findings: this variable was fine in it.
    const std::int64_t pause = line.time - variable->lastAlert;
    const bool isTold = line.document.find("cleared") != nullptr;
    opens = !hasQuietRuns_ && !isTold && unit.spacing < (pause * 2) / 5;
    if (opens && variable->details != nullptr) {
      variable->details->episodes.back().end = FoundEpisode::End::kUnseen;
    }
  } else {
    unit.open.push_back(variable);
  }
  variable->isOpen = true;
  variable->lastAlert = line.time;
  variable->lastLine = lines_;
  ++variable->alerts;
  variable->episodes += opens ? 1U : 0U;
  if (variable->details != nullptr) AddDetails(line, item, explanation, opens, *variable->details);
}

void ReportFindings::AddDetails(const Line& line, const JsonValue& item,
                                const JsonValue& explanation, bool opens,
                                VariableFindings& variable) {
  FoundAlert alert;
  alert.time = line.time;
  alert.blocked = line.blocked;
  JsonValue info;
  if (!JsonReader::Parse(TextMember(item, "RuleParam"), info) || !info.isObject()) {
    info = JsonValue(JsonType::Object);
  }
  alert.type = TypeMember(info, "_t");
  const std::string parameter = TextMember(info, "_p");
  alert.parameter = variable.Text(parameter, budget_);
  alert.expectation = variable.Text(Words(alert.type, parameter), budget_);
  const JsonValue* const value = info.find("_v");
  if (value != nullptr && value->isString()) {
    alert.value = variable.Text(value->stringRef(), budget_);
  }
  if (explanation.isObject()) alert.explanation = ScriptText(explanation);
  variable.AddAlert(std::move(alert), opens, budget_);
}

void ReportFindings::ClearTold(const Line& line, const JsonValue& cleared, Unit& unit) {
  for (const JsonValue& item : cleared) {
    if (!item.isObject()) continue;
    const auto found = found_.find(
        FingerprintOf(line.Key(TextMember(item, "interface"), TextMember(item, "variable"))));
    if (found == found_.end()) continue;
    FoundVariable& variable = found->second;
    if (!variable.isOpen || variable.lastLine == lines_) continue;
    Clear(variable, line.time);
    std::erase(unit.open, &variable);
  }
}

void ReportFindings::ClearOthers(const Line& line, Unit& unit) const {
  if (line.variables == 0) return;  // nothing was read
  if (line.repeated > 0) return;    // which values were judged is not told
  const JsonValue* const rejected = line.document.find("rejected");
  const auto isRejected = [&](std::uint64_t name) {
    if (rejected == nullptr || !rejected->isArray()) return false;
    for (const JsonValue& other : *rejected) {
      if (other.isString() && HashOf(other.stringRef()) == name) return true;
    }
    return false;
  };
  std::erase_if(unit.open, [&](FoundVariable* variable) {
    if (variable->lastLine == lines_ || isRejected(variable->name)) return false;
    Clear(*variable, line.time);
    return true;
  });
}

void ReportFindings::TakeRule(const Line& line, const JsonValue& item) {
  const FoundVariable* const found =
      Touch(line.Key(TextMember(item, "strInterfaceName"), TextMember(item, "strVariableName")));
  if (found == nullptr || found->details == nullptr) return;
  FoundRule rule;
  rule.time = line.time;
  rule.type = TypeMember(item, "nRuleId");
  const std::string parameter = TextMember(item, "strRuleAlgParam");
  rule.parameter = found->details->Text(parameter, budget_);
  rule.expectation = found->details->Text(Words(rule.type, parameter), budget_);
  found->details->AddRule(rule, budget_);
}

void ReportFindings::TakeRefused(const Line& line, const JsonValue& item) {
  const FoundVariable* const found =
      Touch(line.Key(TextMember(item, "interface"), TextMember(item, "variable")));
  if (found == nullptr || found->details == nullptr) return;
  ++found->details->refused;
  found->details->refusedTime = line.time;
  found->details->refusedReason = found->details->Text(TextMember(item, "reason"), budget_);
}

void ReportFindings::TakeGoldenValue(const Line& line, const JsonValue& item) {
  const FoundVariable* const found =
      Touch(line.Key(TextMember(item, "strInterfaceName"), TextMember(item, "strVariableName")));
  if (found == nullptr || found->details == nullptr) return;
  FoundGoldenValue golden;
  golden.time = IntMember(item, "nValueTime", line.time);
  golden.value = found->details->Text(TextMember(item, "strJsonValue"), budget_);
  found->details->AddGoldenValue(golden, budget_);
}

}  // namespace keelstone::host
