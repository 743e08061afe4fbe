#ifndef KEELSTONE_PROGRAM_COMMANDS_GENERAL_SETTINGS_H
#define KEELSTONE_PROGRAM_COMMANDS_GENERAL_SETTINGS_H

#include <string>

#include "keelstone/json_value.h"

namespace keelstone::host {

/// Reads a file that holds one JSON object (comments allowed). The text says what is
/// wrong and in which line; empty when all is well.
[[nodiscard]] std::string ReadJsonObjectFile(const std::string& file, JsonValue& value);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_GENERAL_SETTINGS_H
