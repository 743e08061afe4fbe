#include "learn/rule_type_table.h"

#include <array>
#include <cstddef>

#include "model/rules/numeric_rules.h"
#include "model/rules/regex_rule.h"
#include "model/rules/string_rules.h"
#include "model/rules/table_md5_rule.h"

namespace keelstone {

namespace {

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

template <auto kAccessor>
std::shared_ptr<KSRuleSettingBase> Typed(const KSRuleGlobalSetting& document) {
  return (document.*kAccessor)();
}

using Document = KSRuleGlobalSetting;

constexpr std::array kRows = {
    RuleTypeRow{kStrEqual, "strEqual", Typed<&Document::GetStrEqualSetting>, true,
                Make<KSStringEqualRule>},
    RuleTypeRow{kStrNoEqual, "strNoEqual", nullptr, false, Make<KSStrNoEqualRule>},
    RuleTypeRow{kStrEnum, "strEnum", Typed<&Document::GetStrEnumSetting>, true,
                Make<KSStringEnumRule>},
    RuleTypeRow{kStrRegex, "strRegex", nullptr, false, Make<KSStrRegexRule>},
    RuleTypeRow{kIntEqual, "intEqual", Typed<&Document::GetIntEqualSetting>, true,
                MakeNumeric<NumericEqualRule>},
    RuleTypeRow{kIntNoEqual, "intNoEqual", nullptr, false, MakeNumeric<NumericNotEqualRule>},
    RuleTypeRow{kIntEnum, "intEnum", Typed<&Document::GetIntEnumSetting>, true,
                MakeNumeric<NumericEnumRule>},
    RuleTypeRow{kIntRange, "intRange", Typed<&Document::GetIntRangeSetting>, true,
                MakeNumeric<NumericRangeRule>},
    RuleTypeRow{kIntConstant, "intConstant", Typed<&Document::GetIntConstSetting>, true,
                MakeNumeric<NumericConstantRule>},
    RuleTypeRow{kIntIncrease, "intIncrease", Typed<&Document::GetIntIncreaseSetting>, true,
                MakeNumeric<NumericIncreaseRule>},
    RuleTypeRow{kIntLEQ, "intLEQ", nullptr, false, MakeNumeric<NumericLessEqualRule>},
    RuleTypeRow{kIntGEQ, "intGEQ", nullptr, false, MakeNumeric<NumericGreaterEqualRule>},
    // The table type keeps its history by its own settings, but its interval is read
    // where the types without settings look.
    RuleTypeRow{kTableMd5, "tableMd5", Typed<&Document::GetMD5TableSetting>, false,
                Make<KSTableMd5EqualRule>},
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

const RuleTypeRow* FindRuleType(EnumRuleType type) {
  if (type < 0 || type >= kRuleTypeCount) return nullptr;
  return &kRows[static_cast<std::size_t>(type)];
}

const char* RuleTypeName(EnumRuleType type) {
  const RuleTypeRow* const row = FindRuleType(type);
  return row == nullptr ? "" : row->name;
}

}  // namespace keelstone
