#ifndef KEELSTONE_MODEL_HISTORY_HISTORY_SCAN_H
#define KEELSTONE_MODEL_HISTORY_HISTORY_SCAN_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "keelstone/rule_enums.h"

/// What can be told of a history text without making a history of it. Stateless: any thread.
namespace keelstone {

/// The time of the newest point of a history text, when the text is to the last byte what a
/// history of this type writes of itself: then reading and writing it would leave it as it
/// is. Nothing for every other text, for the empty one and for tables: a history has to
/// judge those.
std::optional<std::int64_t> NewestTimeOfOwnText(EnumKSDataType dataType, std::string_view text);

/// A guess at the same from the last lines of any text, which costs next to nothing: right
/// for what the library writes, anything or nothing for what others do.
std::optional<std::int64_t> GuessNewestTime(std::string_view text);

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_HISTORY_SCAN_H
