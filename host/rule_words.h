#ifndef KEELSTONE_HOST_RULE_WORDS_H
#define KEELSTONE_HOST_RULE_WORDS_H

#include <string>

#include "model/ksruleenums.h"

namespace keelstone::host {

/// A rule as a person reads it: "between 10 and 14", "one of 1, 2, 3", "always rising".
/// `parameter` is the rule's parameter text; what cannot be read of it is shown as it
/// stands. The answer is printable.
std::string RuleInWords(EnumRuleType type, const std::string& parameter);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_RULE_WORDS_H
