#include "engine/value_check.h"

#include <cstdint>
#include <variant>

#include "model/rules/numeric_rules.h"
#include "model/rules/string_rules.h"

namespace keelstone {

namespace {

template <class Rule, class Value>
std::optional<bool> Check(std::string_view param, const Value& value) {
  typename Rule::Data data;
  if (!data.TakeOwnText(param)) return std::nullopt;
  return Rule::Breaks(data, value);
}

template <class T>
std::optional<bool> CheckNumber(EnumRuleType type, std::string_view param, const T* value) {
  if (value == nullptr) return std::nullopt;
  switch (type) {
    case kIntEqual:
      return Check<NumericEqualRule<T>>(param, *value);
    case kIntNoEqual:
      return Check<NumericNotEqualRule<T>>(param, *value);
    case kIntEnum:
      return Check<NumericEnumRule<T>>(param, *value);
    case kIntRange:
      return Check<NumericRangeRule<T>>(param, *value);
    case kIntConstant:
      return Check<NumericConstantRule<T>>(param, *value);
    case kIntIncrease:
      return Check<NumericIncreaseRule<T>>(param, *value);
    case kIntLEQ:
      return Check<NumericLessEqualRule<T>>(param, *value);
    case kIntGEQ:
      return Check<NumericGreaterEqualRule<T>>(param, *value);
    default:
      return std::nullopt;
  }
}

std::optional<bool> CheckText(EnumRuleType type, std::string_view param, std::string_view value) {
  switch (type) {
    case kStrEqual:
      return Check<KSStringEqualRule>(param, value);
    case kStrNoEqual:
      return Check<KSStrNoEqualRule>(param, value);
    case kStrEnum:
      return Check<KSStringEnumRule>(param, value);
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<bool> BreaksRule(const TypedValue& value, EnumRuleType type, std::string_view param) {
  switch (value.dataType()) {
    case KSDataInt64:
      return CheckNumber(type, param, std::get_if<std::int64_t>(&value.content()));
    case KSDataFloat:
      return CheckNumber(type, param, std::get_if<float>(&value.content()));
    case KSDataDouble:
      return CheckNumber(type, param, std::get_if<double>(&value.content()));
    case KSDataString:
      return CheckText(type, param, std::get<std::string_view>(value.content()));
    default:
      return std::nullopt;
  }
}

}  // namespace keelstone
