#include "keelstone/expectation.h"

#include <array>
#include <cmath>
#include <cstddef>

#include "base/text/numbers.h"
#include "keelstone/json_reader.h"

namespace keelstone {

namespace {

constexpr std::size_t kShownBytes = 120;
constexpr std::size_t kShownElements = 12;
constexpr const char* kTrimmed = " \n";

constexpr std::array<const char*, 11> kKindNames = {"none",     "value",   "notValue", "set",
                                                    "bounds",   "atMost",  "atLeast",  "increasing",
                                                    "constant", "pattern", "digest"};

std::string ListInWords(const std::vector<JsonValue>& values, EnumKSDataType dataType) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ", ";
    if (i == kShownElements) return text + "…";
    text += ValueInWords(values[i], dataType);
  }
  return text.empty() ? "nothing" : text;
}

/// Takes the parameter's data; false when it lacks what the kind compares with.
bool TakeData(const JsonValue& document, const RuleKind& rule, KSExpectation& expected) {
  const JsonValue* const parameter = document.find(rule.parameter.front().name);
  switch (expected.kind) {
    case kExpectBounds: {
      const JsonValue* const least = document.find("minValue");
      const JsonValue* const most = document.find("maxValue");
      if (least == nullptr || most == nullptr) return false;
      expected.least = *least;
      expected.most = *most;
      return true;
    }
    case kExpectNotValue:
    case kExpectSet:
      if (parameter == nullptr || !parameter->isArray()) return false;
      for (const JsonValue& value : *parameter) expected.values.push_back(value);
      return true;
    case kExpectPattern:
    case kExpectDigest:
      if (parameter == nullptr || !parameter->isString()) return false;
      expected.text = parameter->stringRef();
      return true;
    default:
      if (parameter == nullptr || (!parameter->isString() && !parameter->isNumeric())) return false;
      expected.value = *parameter;
      return true;
  }
}

std::string DataInWords(const KSExpectation& expected, EnumKSDataType dataType) {
  switch (expected.kind) {
    case kExpectBounds:
      return ValueInWords(expected.least, dataType) + " and " +
             ValueInWords(expected.most, dataType);
    case kExpectNotValue:
    case kExpectSet:
      return ListInWords(expected.values, dataType);
    case kExpectPattern:
    case kExpectDigest:
      return ValueInWords(expected.text, dataType);
    default:
      return ValueInWords(expected.value, dataType);
  }
}

}  // namespace

std::string CutText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0U) == 0x80U) --limit;
  return std::string(text.substr(0, limit)) + "…";
}

std::string ValueInWords(const JsonValue& value, EnumKSDataType dataType) {
  if (value.isString()) return '"' + CutText(value.stringRef(), kShownBytes) + '"';
  if (dataType == KSDataFloat && value.type() == JsonType::Real && std::isfinite(value.asFloat())) {
    // Written before, it may stand there with the digits of a double.
    std::string text;
    AppendNumber(text, value.asFloat());
    return text;
  }
  return CutText(value.toString(), kShownBytes);
}

const char* ExpectationKindName(EnumExpectationKind kind) {
  const auto index = static_cast<std::size_t>(kind);
  return index < kKindNames.size() ? kKindNames[index] : "";
}

KSExpectation KSExpectation::Of(EnumRuleType type, const std::string& parameter,
                                EnumKSDataType dataType) {
  KSExpectation expected;
  const RuleKind* const rule = FindRuleKind(type);
  if (rule != nullptr) {
    expected.kind = rule->expectation;
    expected.isTrimmed = rule->isTrimmed;
    expected.words = rule->unread;
    JsonValue document;
    const bool isRead = parameter.empty() || JsonReader::Parse(parameter, document);
    if (isRead && TakeData(document, *rule, expected)) {
      expected.words = rule->words + DataInWords(expected, dataType);
      return expected;
    }
    if (isRead && document.empty() && !expected.words.empty()) {
      expected.kind = kExpectNothing;
      return expected;
    }
  }
  expected = KSExpectation();
  const std::string name = rule == nullptr ? "no rule" : rule->name;
  expected.words = name + " " + CutText(parameter, kShownBytes);
  return expected;
}

JsonValue KSExpectation::ToJsonValue() const {
  JsonValue object(JsonType::Object);
  object["words"] = words;
  object["kind"] = ExpectationKindName(kind);
  switch (kind) {
    case kExpectNothing:
      break;
    case kExpectNotValue:
    case kExpectSet: {
      JsonValue& list = object["values"] = JsonValue(JsonType::Array);
      for (const JsonValue& one : values) list.append(one);
      break;
    }
    case kExpectBounds:
      object["min"] = least;
      object["max"] = most;
      break;
    case kExpectPattern:
      object["pattern"] = text;
      object["ignoreCase"] = true;
      object["anywhere"] = true;
      break;
    case kExpectDigest:
      object["digest"] = text;
      break;
    default:
      object["value"] = value;
      if (isTrimmed) object["trim"] = kTrimmed;
  }
  return object;
}

std::string KSExpectation::ToJsonString() const {
  return ToJsonValue().toString({.replaceInvalidUtf8 = true});
}

}  // namespace keelstone
