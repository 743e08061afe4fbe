#include "learn/rule_type_table.h"

#include <array>
#include <cstddef>
#include <string>
#include <type_traits>

#include "learn/rule_classes.h"

namespace keelstone {

namespace {

template <EnumRuleType kType>
std::shared_ptr<IRuleBase> Make(EnumKSDataType dataType) {
  if constexpr (KindOf(kType).family != KSAlgNumerical) {
    return std::make_shared<RuleClass<kType, std::string>>();
  } else {
    switch (dataType) {
      case KSDataInt64:
        return std::make_shared<RuleClass<kType, std::int64_t>>();
      case KSDataFloat:
        return std::make_shared<RuleClass<kType, float>>();
      case KSDataDouble:
        return std::make_shared<RuleClass<kType, double>>();
      default:
        return nullptr;
    }
  }
}

constexpr auto kMakers = ForEachRuleType([]<EnumRuleType kType> { return &Make<kType>; });

template <class Value>
using Check = std::optional<bool> (*)(std::string_view, Value);

template <class Rule, class Value>
std::optional<bool> CheckWith(std::string_view param, Value value) {
  typename Rule::Data data;
  if (!data.TakeOwnText(param)) return std::nullopt;
  return Rule::Breaks(data, value);
}

template <EnumRuleType kType, class Value>
constexpr Check<Value> CheckOf() {
  constexpr EnumAlgType kFamily = std::is_arithmetic_v<Value> ? KSAlgNumerical : KSAlgString;
  if constexpr (KindOf(kType).isCheckedByParameter && KindOf(kType).family == kFamily) {
    return &CheckWith<RuleClass<kType, Value>, Value>;
  } else {
    return nullptr;
  }
}

template <class Value>
constexpr auto kChecks =
    ForEachRuleType([]<EnumRuleType kType> { return CheckOf<kType, Value>(); });

template <class Value>
std::optional<bool> CheckValue(EnumRuleType type, std::string_view param, Value value) {
  const Check<Value> check =
      IsRuleType(type) ? kChecks<Value>[static_cast<std::size_t>(type)] : nullptr;
  return check == nullptr ? std::nullopt : check(param, value);
}

}  // namespace

std::shared_ptr<IRuleBase> MakeRule(EnumRuleType type, EnumKSDataType dataType) {
  return IsRuleType(type) ? kMakers[static_cast<std::size_t>(type)](dataType) : nullptr;
}

std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, std::int64_t value) {
  return CheckValue(type, param, value);
}
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, float value) {
  return CheckValue(type, param, value);
}
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, double value) {
  return CheckValue(type, param, value);
}
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param,
                                    std::string_view value) {
  return CheckValue(type, param, value);
}

}  // namespace keelstone
