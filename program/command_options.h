#ifndef KEELSTONE_PROGRAM_COMMAND_OPTIONS_H
#define KEELSTONE_PROGRAM_COMMAND_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "keelstone/logger.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace keelstone::host {

/// What every command takes.
struct CommonOptions {
  std::string root;  // empty: KEELSTONE_ROOT, else ./keelstone-root
  std::string domain = "default";
  int logLevel = kLogNotice;
};

/// --max-line: the bytes that a line of the input may have.
void AddMaxLineOption(CLI::App& command, std::size_t& maxLine);

void AddCommonOptions(CLI::App& command, CommonOptions& options);

/// Refuses what is no whole number from `low` to `high`. CLI11 has a check of its own, which
/// says so in other words with each version.
void RequireRange(CLI::Option& option, std::int64_t low, std::int64_t high);

/// Puts the root folder and the log level in place; before anything else of the library
/// is used.
void Apply(const CommonOptions& options);

/// Why a command cannot work on a domain that must be there whole; empty when it can.
std::string DomainFault(const std::string& domainId, bool forWriting);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMAND_OPTIONS_H
