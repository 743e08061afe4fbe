#ifndef KEELSTONE_HOST_GENERAL_SETTINGS_H
#define KEELSTONE_HOST_GENERAL_SETTINGS_H

#include <string>

#include "platform/json_value.h"

namespace keelstone::host {

/// Lays `top` over `base`: objects member by member, everything else in its place.
void LayOver(JsonValue& base, const JsonValue& top);

/// Reads a file that holds one JSON object (comments allowed). The text says what is
/// wrong and in which line; empty when all is well.
[[nodiscard]] std::string ReadJsonObjectFile(const std::string& file, JsonValue& value);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_GENERAL_SETTINGS_H
