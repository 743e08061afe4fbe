#ifndef KEELSTONE_LEARN_RULE_TYPE_TABLE_H
#define KEELSTONE_LEARN_RULE_TYPE_TABLE_H

#include <memory>

#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone {

/// All that differs by rule type: one row a type, in the order of the numbers.
struct RuleTypeRow {
  EnumRuleType type;
  const char* name;  // in documents, and as key of the type's general settings
  /// Typed settings, or nullptr for a type that has none of its own.
  std::shared_ptr<KSRuleSettingBase> (*settings)(const KSRuleGlobalSetting&);
  /// Whether the live interval too comes from the typed settings.
  bool typedInterval;
  /// A new rule for a data type, empty when there is no such class.
  std::shared_ptr<IRuleBase> (*make)(EnumRuleType, EnumKSDataType);
};

/// The row of a type; nullptr for what is no rule type.
const RuleTypeRow* FindRuleType(EnumRuleType type);

}  // namespace keelstone

#endif  // KEELSTONE_LEARN_RULE_TYPE_TABLE_H
