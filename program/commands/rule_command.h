#ifndef KEELSTONE_PROGRAM_COMMANDS_RULE_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_RULE_COMMAND_H

#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct RuleOptions {
  CommonOptions common;
  std::string format;
  // Which variable of which object.
  std::string device;
  std::string interface;
  std::string source;
  std::string param;
  std::string variable;
  // rule set
  std::string type;
  std::string parameter;
  // rule unset
  bool dryRun = false;
};

/// Adds `rule` with its commands `set` and `unset`.
void AddRuleCommand(CLI::App& program, RuleOptions& options);

/// Prescribes a rule; the exit code.
int RunRuleSet(const RuleOptions& options);
/// Removes a rule and its history; the exit code.
int RunRuleUnset(const RuleOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_RULE_COMMAND_H
