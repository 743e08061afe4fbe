#ifndef KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H
#define KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H

#include <string>

#include "keelstone/json_value.h"
#include "keelstone/rule_kinds.h"

namespace keelstone::host {

/// The names of all rule types, separated by ", ".
std::string RuleTypeNames();

/// What keeps a parameter from being one of this kind of rule; empty when nothing does.
std::string ParameterFault(const RuleKind& rule, const JsonValue& parameter);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_RULE_PARAMETER_H
