#ifndef KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H
#define KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H

#include <string>

#include "keelstone/json_value.h"
#include "keelstone/rule_enums.h"

namespace keelstone::host {

/// The rule type of this name ("intLEQ"); kRuleTypeNone when there is none.
EnumRuleType RuleTypeByName(const std::string& name);
/// All names, separated by ", ".
std::string RuleTypeNames();

/// What keeps a parameter from being one of this kind of rule; empty when nothing does.
std::string ParameterFault(EnumRuleType type, const JsonValue& parameter);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H
