#ifndef KEELSTONE_PROGRAM_COMMANDS_SHOW_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_SHOW_COMMAND_H

#include <optional>
#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct ShowOptions {
  CommonOptions common;
  std::string format;
  std::string device;
  // Only what has just this; all when absent.
  std::optional<std::string> interface;
  std::optional<std::string> source;
  std::optional<std::string> param;
  std::optional<std::string> variable;
};

void AddShowCommand(CLI::App& program, ShowOptions& options);

/// Shows all that is known of the objects; the exit code.
int RunShow(const ShowOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_SHOW_COMMAND_H
