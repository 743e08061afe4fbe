#ifndef KEELSTONE_PROGRAM_COMMANDS_MERGE_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_MERGE_COMMAND_H

#include <string>

#include "program/command_options.h"

namespace keelstone::host {

struct MergeOptions {
  CommonOptions common;
  std::string type;    // "object-rule" and its like
  std::string from;    // the delivered database
  std::string format;  // "json" or "text"; empty: by what standard output is
};

void AddMergeCommand(CLI::App& program, MergeOptions& options);

/// Takes a delivered database over into the domain's own; the exit code.
int RunMerge(const MergeOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_MERGE_COMMAND_H
