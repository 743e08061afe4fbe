#ifndef KEELSTONE_SETTINGS_RULE_KINDS_H
#define KEELSTONE_SETTINGS_RULE_KINDS_H

#include <memory>

#include "keelstone/rule_enums.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone {

/// What the general settings say of a rule type: one row a type, in the order of the numbers.
struct RuleKind {
  EnumRuleType type;
  const char* name;  // in documents, and as key of the type's general settings
  /// Typed settings, or nullptr for a type that has none of its own.
  std::shared_ptr<KSRuleSettingBase> (*settings)(const KSRuleGlobalSetting&);
  /// Whether the live interval too comes from the typed settings.
  bool typedInterval;
};

/// The row of a type; nullptr for what is no rule type.
const RuleKind* FindRuleKind(EnumRuleType type);

}  // namespace keelstone

#endif  // KEELSTONE_SETTINGS_RULE_KINDS_H
