#include "program/commands/rule_parameter.h"

#include "keelstone/pattern_fault.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::host {

namespace {

constexpr const char* kPattern =
    "a regular expression in Perl's syntax, of at most 256 KiB, without recursion and (*ACCEPT)";

bool IsArrayOf(const JsonValue& value, bool (*fits)(const JsonValue&)) {
  if (!value.isArray() || value.empty()) return false;
  for (const JsonValue& element : value) {
    if (!fits(element)) return false;
  }
  return true;
}

bool IsText(const JsonValue& value) { return value.isString(); }
bool IsNumber(const JsonValue& value) { return value.isNumeric(); }

/// What the member must be; nullptr when it is.
const char* Demand(ParameterKind kind, const JsonValue& value) {
  switch (kind) {
    case ParameterKind::kText:
      return IsText(value) ? nullptr : "a text";
    case ParameterKind::kTexts:
      return IsArrayOf(value, IsText) ? nullptr : "an array of texts, one at least";
    case ParameterKind::kNumber:
      return IsNumber(value) ? nullptr : "a number";
    case ParameterKind::kNumbers:
      return IsArrayOf(value, IsNumber) ? nullptr : "an array of numbers, one at least";
    case ParameterKind::kBool:
      return value.isBool() ? nullptr : "true or false";
    case ParameterKind::kPattern:
      break;
  }
  if (!IsText(value)) return "a text";
  return PatternFault(value.stringRef()).empty() ? nullptr : kPattern;
}

std::string Named(const char* name) { return std::string("\"") + name + "\""; }

std::string UnknownMember(const RuleKind& rule, const JsonValue& parameter) {
  for (const std::string& name : parameter.getMemberNames()) {
    bool isKnown = false;
    std::string known;
    for (const ParameterMember& member : rule.parameter) {
      if (member.name == nullptr) break;
      isKnown |= name == member.name;
      known.append(known.empty() ? "" : ", ").append(Named(member.name));
    }
    if (!isKnown) return "\"" + name + "\" is no member of it; there is " + known;
  }
  return {};
}

}  // namespace

std::string RuleTypeNames() {
  std::string names;
  for (int type = 0; type < kRuleTypeCount; ++type) {
    names.append(type == 0 ? "" : ", ").append(RuleTypeName(static_cast<EnumRuleType>(type)));
  }
  return names;
}

std::string ParameterFault(const RuleKind& rule, const JsonValue& parameter) {
  if (!parameter.isObject()) return "it must be a JSON object";
  for (const ParameterMember& member : rule.parameter) {
    if (member.name == nullptr) break;
    const JsonValue* const value = parameter.find(member.name);
    if (value == nullptr && !member.isRequired) continue;
    if (value == nullptr) return Named(member.name) + " is missing";
    const char* const demand = Demand(member.kind, *value);
    if (demand != nullptr) return Named(member.name) + " must be " + demand;
  }
  if (rule.expectation == kExpectBounds &&
      parameter.find("minValue")->asDouble() > parameter.find("maxValue")->asDouble()) {
    return "\"minValue\" is above \"maxValue\"";
  }
  return UnknownMember(rule, parameter);
}

}  // namespace keelstone::host
