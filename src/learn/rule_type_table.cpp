#include "learn/rule_type_table.h"

#include <array>
#include <cstddef>

#include "model/rules/numeric_rules.h"
#include "model/rules/regex_rule.h"
#include "model/rules/string_rules.h"
#include "model/rules/table_md5_rule.h"

namespace keelstone {

namespace {

/// The class of a rule type.
struct RuleTypeRow {
  EnumRuleType type;
  std::shared_ptr<IRuleBase> (*make)(EnumRuleType, EnumKSDataType);
};

template <template <class> class Rule>
std::shared_ptr<IRuleBase> MakeNumeric(EnumRuleType type, EnumKSDataType dataType) {
  switch (dataType) {
    case KSDataInt64:
      return std::make_shared<Rule<std::int64_t>>(type);
    case KSDataFloat:
      return std::make_shared<Rule<float>>(type);
    case KSDataDouble:
      return std::make_shared<Rule<double>>(type);
    default:
      return nullptr;
  }
}

/// Strings and tables have one class whatever the data type.
template <class Rule>
std::shared_ptr<IRuleBase> Make(EnumRuleType type, EnumKSDataType) {
  return std::make_shared<Rule>(type);
}

constexpr std::array kRows = {
    RuleTypeRow{kStrEqual, Make<KSStringEqualRule>},
    RuleTypeRow{kStrNoEqual, Make<KSStrNoEqualRule>},
    RuleTypeRow{kStrEnum, Make<KSStringEnumRule>},
    RuleTypeRow{kStrRegex, Make<KSStrRegexRule>},
    RuleTypeRow{kIntEqual, MakeNumeric<NumericEqualRule>},
    RuleTypeRow{kIntNoEqual, MakeNumeric<NumericNotEqualRule>},
    RuleTypeRow{kIntEnum, MakeNumeric<NumericEnumRule>},
    RuleTypeRow{kIntRange, MakeNumeric<NumericRangeRule>},
    RuleTypeRow{kIntConstant, MakeNumeric<NumericConstantRule>},
    RuleTypeRow{kIntIncrease, MakeNumeric<NumericIncreaseRule>},
    RuleTypeRow{kIntLEQ, MakeNumeric<NumericLessEqualRule>},
    RuleTypeRow{kIntGEQ, MakeNumeric<NumericGreaterEqualRule>},
    RuleTypeRow{kTableMd5, Make<KSTableMd5EqualRule>},
};
static_assert(kRows.size() == kRuleTypeCount);

constexpr bool IsInOrder() {
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    if (static_cast<std::size_t>(kRows[i].type) != i) return false;
  }
  return true;
}
static_assert(IsInOrder());

}  // namespace

std::shared_ptr<IRuleBase> MakeRule(EnumRuleType type, EnumKSDataType dataType) {
  if (type < 0 || type >= kRuleTypeCount) return nullptr;
  return kRows[static_cast<std::size_t>(type)].make(type, dataType);
}

}  // namespace keelstone
