#ifndef KEELSTONE_PROGRAM_COMMANDS_CLEAN_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_CLEAN_COMMAND_H

#include <string>
#include <vector>

#include "program/command_options.h"

namespace keelstone::host {

struct CleanOptions {
  CommonOptions common;
  std::vector<std::string> keep;  // sources
  std::string keepFile;           // one source a line; "-" is standard input, empty: none
  bool dryRun = false;
  bool yes = false;    // do not ask, however much goes
  std::string format;  // "json" or "text"; empty: by what standard output is
};

void AddCleanCommand(CLI::App& program, CleanOptions& options);

/// Removes the rules and histories of the sources that are not to be kept; the exit code.
int RunClean(const CleanOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_CLEAN_COMMAND_H
