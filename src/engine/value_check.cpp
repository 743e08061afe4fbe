#include "engine/value_check.h"

#include "base/text/strings.h"
#include "engine/variable_values.h"
#include "keelstone/numbers.h"
#include "learn/rule_type_table.h"

namespace keelstone {

namespace {

template <class Value>
std::optional<bool> Check(EnumRuleType type, std::string_view param, std::optional<Value> value) {
  return value ? BreaksParameter(type, param, *value) : std::nullopt;
}

}  // namespace

std::optional<bool> BreaksRule(const VarInfo& variable, EnumRuleType type, std::string_view param) {
  switch (variable.dataType) {
    case KSDataInt64:
      return Check(type, param, LeadingInt64(variable.valueText));
    case KSDataFloat:
      return Check(type, param, LeadingFloat(variable.valueText));
    case KSDataDouble:
      return Check(type, param, LeadingDouble(variable.valueText));
    case KSDataString:
      return BreaksParameter(type, param, TextValue(variable.valueText));
    default:
      return std::nullopt;
  }
}

}  // namespace keelstone
