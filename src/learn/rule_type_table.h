#ifndef KEELSTONE_LEARN_RULE_TYPE_TABLE_H
#define KEELSTONE_LEARN_RULE_TYPE_TABLE_H

#include <memory>

#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// A new rule of a type for a data type; empty when there is no such class.
std::shared_ptr<IRuleBase> MakeRule(EnumRuleType type, EnumKSDataType dataType);

}  // namespace keelstone

#endif  // KEELSTONE_LEARN_RULE_TYPE_TABLE_H
