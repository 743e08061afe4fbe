#ifndef KEELSTONE_PROGRAM_COMMANDS_RULES_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_RULES_COMMAND_H

#include <optional>
#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct RulesOptions {
  CommonOptions common;
  std::string format;
  // Only rules with just this; all when absent.
  std::optional<std::string> device;
  std::optional<std::string> interface;
  std::optional<std::string> source;
  std::optional<std::string> variable;
};

void AddRulesCommand(CLI::App& program, RulesOptions& options);

/// Lists the rules of the domain; the exit code.
int RunRules(const RulesOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_RULES_COMMAND_H
