#ifndef KEELSTONE_PROGRAM_COMMANDS_KNOWN_VARIABLE_H
#define KEELSTONE_PROGRAM_COMMANDS_KNOWN_VARIABLE_H

#include <cstdint>
#include <string>

#include "keelstone/json_value.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_kinds.h"

namespace keelstone::host {

/// The type of the values that a history text holds; KSDataUnknown when it is none.
EnumKSDataType TypeOfHistory(const std::string& history);
/// The type of value that a parser's type code stands for where runs name no other.
EnumKSDataType TypeOfCode(std::int32_t typeCode);
/// The type of the values that a rule of this kind is for, as its parameter is written: whole
/// numbers, unless one of the parameter's is not.
EnumKSDataType TypeOfParameter(const RuleKind& rule, const JsonValue& parameter);

/// What is known of the values of a variable that is to get a rule.
struct KnownVariable {
  EnumKSDataType defined = KSDataUnknown;  // by its definition
  std::string history;                     // as it is stored; empty: none

  /// Makes the rule's parameter and the history those of the variable's values: whole
  /// numbers become real ones where those are defined. The text says what cannot be
  /// converted and why; empty: all is. `isConverted`: the history is another one now.
  std::string Fit(const RuleKind& rule, JsonValue& parameter, bool& isConverted);
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_KNOWN_VARIABLE_H
