#include "keelstone/explanation.h"

#include <array>
#include <cstddef>
#include <ctime>

#include "keelstone/rule_global_setting.h"

namespace keelstone {

namespace {

constexpr std::size_t kShownNameBytes = 100;
constexpr std::array<const char*, 6> kDataTypeNames = {"",       "int64",  "float",
                                                       "double", "string", "table"};

std::string UtcText(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  std::array<char, 64> text{};
  if (::gmtime_r(&time, &parts) == nullptr) return std::to_string(seconds);
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%SZ", &parts);
  return length > 0 ? std::string(text.data(), length) : std::to_string(seconds);
}

bool IsLearned(const KSAlertExplanation& alert) { return alert.ruleGenerateType == kRuleLearned; }

std::string OriginInWords(const KSAlertExplanation& alert) {
  if (!IsLearned(alert)) return "prescribed";
  if (!alert.learnedTime) return "learned";
  return alert.learnedTime == alert.time ? "learned just now"
                                         : "learned " + UtcText(*alert.learnedTime);
}

JsonValue OriginOf(const KSAlertExplanation& alert) {
  JsonValue object(JsonType::Object);
  object["kind"] = IsLearned(alert) ? "learned" : "prescribed";
  object["time"] =
      IsLearned(alert) && alert.learnedTime ? JsonValue(*alert.learnedTime) : JsonValue();
  if (IsLearned(alert) && !alert.learnedTime) object["words"] = "unknown";
  return object;
}

JsonValue HistoryOf(const KSAlertExplanation& alert) {
  const auto timeOrNull = [&alert](std::int64_t time) {
    return alert.historyPoints > 0 ? JsonValue(time) : JsonValue();
  };
  JsonValue object(JsonType::Object);
  object["points"] = alert.historyPoints;
  object["firstTime"] = timeOrNull(alert.firstTime);
  object["lastTime"] = timeOrNull(alert.lastTime);
  JsonValue& last = object["last"] = JsonValue(JsonType::Array);
  for (const KSTimedValue& point : alert.lastValues) {
    JsonValue& element = last.append(JsonValue(JsonType::Object));
    element["time"] = point.time;
    element["value"] = point.value;
  }
  return object;
}

}  // namespace

const char* DataTypeName(EnumKSDataType type) {
  const auto index = static_cast<std::size_t>(type);
  return index < kDataTypeNames.size() ? kDataTypeNames[index] : "";
}

std::string KSAlertExplanation::Sentence() const {
  std::string text = CutText(variableName, kShownNameBytes);
  if (!interfaceValue.empty()) text += " on " + CutText(interfaceValue, kShownNameBytes);
  return text + " " + Predicate();
}

std::string KSAlertExplanation::Predicate() const {
  std::string text = "is ";
  const std::string changes = table ? table->InWords() : std::string();
  if (dataType != KSDataTable) {
    text += ValueInWords(observed, dataType) + ", expected " + expected.words;
  } else if (changes.empty()) {
    text += "another table, with digest " + ValueInWords(observed, dataType) + ", expected " +
            expected.words;
  } else {
    text += "another table than expected: " + changes;
  }
  text += " (" + OriginInWords(*this);
  if (historyPoints > 0) {
    text += "; " + std::to_string(historyPoints) +
            (historyPoints == 1 ? " value since " : " values since ") + UtcText(firstTime);
  }
  return text + ")";
}

JsonValue KSAlertExplanation::ToJsonValue() const {
  JsonValue object(JsonType::Object);
  object["variable"] = variableName;
  object["interface"] = interfaceValue;
  object["time"] = time;
  object["sentence"] = Sentence();
  object["ruleType"] = RuleTypeName(ruleType);
  object["generateType"] = ruleGenerateType;
  object["valueType"] = DataTypeName(dataType);
  object["expected"] = expected.ToJsonValue();
  JsonValue& seen = object["observed"] = JsonValue(JsonType::Object);
  seen["value"] = observed;
  seen["text"] = observedText;
  object["history"] = HistoryOf(*this);
  object["origin"] = OriginOf(*this);
  if (table) object["table"] = table->ToJsonValue();
  return object;
}

std::string KSAlertExplanation::ToJsonString() const {
  return ToJsonValue().toString({.replaceInvalidUtf8 = true});
}

}  // namespace keelstone
