#include "program/commands/rule_parameter.h"

#include <array>
#include <vector>

#include "keelstone/bounded_regex.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::host {

namespace {

enum class MemberKind { kText, kTexts, kNumber, kNumbers, kBool, kPattern };

constexpr const char* kPattern =
    "a regular expression in Perl's syntax, of at most 256 KiB, without recursion and (*ACCEPT)";

struct Member {
  const char* name;
  MemberKind kind;
  bool required = true;
};

std::vector<Member> MembersOf(EnumRuleType type) {
  switch (type) {
    case kStrEqual:
      return {{"ruleParam", MemberKind::kText}};
    case kStrRegex:
      return {{"ruleParam", MemberKind::kPattern}};
    case kStrNoEqual:
    case kStrEnum:
      return {{"ruleParam", MemberKind::kTexts}};
    case kIntNoEqual:
    case kIntEnum:
      return {{"ruleParam", MemberKind::kNumbers}};
    case kIntRange:
      return {{"minValue", MemberKind::kNumber}, {"maxValue", MemberKind::kNumber}};
    case kIntConstant:
    case kIntIncrease:
      return {{"ruleParam", MemberKind::kNumber, false}};
    case kTableMd5:
      return {{"hashCmp", MemberKind::kText},
              {"hashSort", MemberKind::kBool, false},
              {"hashColumns", MemberKind::kTexts, false}};
    default:
      return {{"ruleParam", MemberKind::kNumber}};
  }
}

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
const char* Demand(MemberKind kind, const JsonValue& value) {
  switch (kind) {
    case MemberKind::kText:
      return IsText(value) ? nullptr : "a text";
    case MemberKind::kTexts:
      return IsArrayOf(value, IsText) ? nullptr : "an array of texts, one at least";
    case MemberKind::kNumber:
      return IsNumber(value) ? nullptr : "a number";
    case MemberKind::kNumbers:
      return IsArrayOf(value, IsNumber) ? nullptr : "an array of numbers, one at least";
    case MemberKind::kBool:
      return value.isBool() ? nullptr : "true or false";
    case MemberKind::kPattern:
      break;
  }
  if (!IsText(value)) return "a text";
  return PatternFault(value.stringRef()).empty() ? nullptr : kPattern;
}

std::string Named(const char* name) { return std::string("\"") + name + "\""; }

std::string UnknownMember(const std::vector<Member>& members, const JsonValue& parameter) {
  for (const std::string& name : parameter.getMemberNames()) {
    bool isKnown = false;
    std::string known;
    for (const Member& member : members) {
      isKnown |= name == member.name;
      known.append(known.empty() ? "" : ", ").append(Named(member.name));
    }
    if (!isKnown) return "\"" + name + "\" is no member of it; there is " + known;
  }
  return {};
}

}  // namespace

EnumRuleType RuleTypeByName(const std::string& name) {
  for (int type = 0; type < kRuleTypeCount; ++type) {
    if (name == RuleTypeName(static_cast<EnumRuleType>(type))) {
      return static_cast<EnumRuleType>(type);
    }
  }
  return kRuleTypeNone;
}

std::string RuleTypeNames() {
  std::string names;
  for (int type = 0; type < kRuleTypeCount; ++type) {
    names.append(type == 0 ? "" : ", ").append(RuleTypeName(static_cast<EnumRuleType>(type)));
  }
  return names;
}

std::string ParameterFault(EnumRuleType type, const JsonValue& parameter) {
  if (!parameter.isObject()) return "it must be a JSON object";
  const std::vector<Member> members = MembersOf(type);
  for (const Member& member : members) {
    const JsonValue* const value = parameter.find(member.name);
    if (value == nullptr && !member.required) continue;
    if (value == nullptr) return Named(member.name) + " is missing";
    const char* const demand = Demand(member.kind, *value);
    if (demand != nullptr) return Named(member.name) + " must be " + demand;
  }
  if (type == kIntRange &&
      parameter.find("minValue")->asDouble() > parameter.find("maxValue")->asDouble()) {
    return "\"minValue\" is above \"maxValue\"";
  }
  return UnknownMember(members, parameter);
}

}  // namespace keelstone::host
