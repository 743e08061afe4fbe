#ifndef KEELSTONE_MODEL_RULES_RULE_CLASS_OF_H
#define KEELSTONE_MODEL_RULES_RULE_CLASS_OF_H

#include "keelstone/rule_enums.h"

namespace keelstone {

/// The class of a rule type, said beside it. `For<T>` is that of values of type T; texts and
/// tables have one class whatever T is. What goes over all types does not compile while one
/// has no class.
template <EnumRuleType kType>
struct RuleClassOf;

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_RULE_CLASS_OF_H
