#ifndef KEELSTONE_PROGRAM_COMMANDS_SETTINGS_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_SETTINGS_COMMAND_H

#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct SettingsOptions {
  CommonOptions common;
  std::string format;
  std::string path;   // settings get: empty for all
  std::string value;  // settings set
};

/// Adds `settings` with its commands `get` and `set`.
void AddSettingsCommand(CLI::App& program, SettingsOptions& options);

// Each answers the exit code.
int RunSettingsGet(const SettingsOptions& options);
int RunSettingsSet(const SettingsOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_SETTINGS_COMMAND_H
