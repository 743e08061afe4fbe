#ifndef KEELSTONE_ENGINE_VALUE_CHECK_H
#define KEELSTONE_ENGINE_VALUE_CHECK_H

#include <optional>
#include <string_view>

#include "engine/typed_value.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// Whether a value breaks a rule: what CheckAlert of the rule answers that Init makes of a
/// definition with this type and parameter text, without making one. Nothing for a
/// parameter text that is not to the last byte what such a rule writes, for a text that gave
/// no value, and for the kinds that are left to their rules: regular expressions, tables, and
/// pairs of types without a rule.
std::optional<bool> BreaksRule(const TypedValue& value, EnumRuleType type, std::string_view param);

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_VALUE_CHECK_H
