#ifndef KEELSTONE_LEARN_RULE_TYPE_TABLE_H
#define KEELSTONE_LEARN_RULE_TYPE_TABLE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// A new rule of a type for a data type; empty when there is no such class.
std::shared_ptr<IRuleBase> MakeRule(EnumRuleType type, EnumKSDataType dataType);

/// Whether a value breaks the rule that Init makes of a parameter text, without making one.
/// Nothing for a text that is not to the last byte what such a rule writes, and for a type that
/// does not judge values of this kind or needs its rule for it.
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, std::int64_t value);
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, float value);
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param, double value);
std::optional<bool> BreaksParameter(EnumRuleType type, std::string_view param,
                                    std::string_view value);

}  // namespace keelstone

#endif  // KEELSTONE_LEARN_RULE_TYPE_TABLE_H
