#ifndef KEELSTONE_PROGRAM_COMMANDS_BLOCK_COMMAND_H
#define KEELSTONE_PROGRAM_COMMANDS_BLOCK_COMMAND_H

#include <cstdint>
#include <string>
#include <vector>

#include "program/command_options.h"

namespace keelstone::host {

struct BlockOptions {
  CommonOptions common;
  std::string format;
  // block add
  std::vector<std::string> devices;
  std::string from;
  std::string to;
  // block remove
  std::vector<std::int64_t> ids;
  bool dryRun = false;
};

/// Adds `block` with its commands `list`, `add` and `remove`.
void AddBlockCommand(CLI::App& program, BlockOptions& options);

// Each answers the exit code.
int RunBlockList(const BlockOptions& options);
int RunBlockAdd(const BlockOptions& options);
int RunBlockRemove(const BlockOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_BLOCK_COMMAND_H
