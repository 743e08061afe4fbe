#include "program/command_options.h"

#include <CLI/CLI.hpp>
#include <string>

#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/logger.h"

namespace keelstone::host {

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
  command
      .add_option("--root", options.root,
                  "Root folder of configuration, data and log (default: the environment variable "
                  "KEELSTONE_ROOT, else ./keelstone-root)")
      ->type_name("DIR");
  command.add_option("--domain", options.domain, "Domain to work on")
      ->type_name("ID")
      ->capture_default_str();
  RequireRange(*command
                    .add_option("--log-level", options.logLevel,
                                "What goes into the log: 0 progress, 1 information, 2 notices, 3 "
                                "errors, 4 nothing")
                    ->type_name("N")
                    ->capture_default_str(),
               0, 4);
}

void RequireRange(CLI::Option& option, std::int64_t low, std::int64_t high) {
  const auto fault = [low, high](const std::string& input) {
    std::int64_t value = 0;
    const bool fits = CLI::detail::lexical_cast(input, value) && value >= low && value <= high;
    return fits ? std::string()
                : "Value " + input + " not in range " + std::to_string(low) + " to " +
                      std::to_string(high);
  };
  option.check(fault, "INT in [" + std::to_string(low) + " - " + std::to_string(high) + "]");
}

void AddMaxLineOption(CLI::App& command, std::size_t& maxLine) {
  RequireRange(
      *command
           .add_option("--max-line", maxLine,
                       "Skip lines of the input that are longer: bytes, or as in 512kb, 64mb, 1gb")
           ->type_name("SIZE")
           ->transform(CLI::AsSizeValue(false))
           ->default_str("256mb"),
      1, 0xFFFFFFFF);
}

void Apply(const CommonOptions& options) {
  if (!options.root.empty()) VXFileSystem::SetSystemRootFolder(options.root);
  Logger::Instance().SetLevel(options.logLevel);
}

std::string DomainFault(const std::string& domainId, bool forWriting) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(domainId, forWriting);
  if (check.condition == Condition::kComplete) return {};
  std::string fault = "domain \"" + domainId + "\" cannot be used: " + check.detail;
  if (check.condition != Condition::kUnusable) fault += "; `keelstone init` makes what is missing";
  return fault;
}

}  // namespace keelstone::host
