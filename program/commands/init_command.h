#ifndef KEELSTONE_PROGRAM_COMMANDS_INIT_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_INIT_COMMAND_H

#include <optional>
#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct InitOptions {
  CommonOptions common;
  std::string settingsFile;         // empty: the defaults alone
  std::optional<int> intervalTime;  // seconds
};

void AddInitCommand(CLI::App& program, InitOptions& options);

/// Makes the domain's databases; the exit code.
int RunInit(const InitOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_INIT_COMMAND_H
