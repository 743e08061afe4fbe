#include "host/clean_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <string_view>

#include "host/console.h"
#include "host/exit_codes.h"
#include "platform/cppsqlite3.h"
#include "platform/filesystem.h"
#include "platform/text_escape.h"
#include "storage/domain_files.h"
#include "storage/gone_sources.h"

namespace keelstone::host {

namespace {

constexpr const char* kHelpEnd =
    R"(Names are compared exactly. A source that is named nowhere goes with all its rules, learned
and fixed, and their histories, on all devices. A list without any name is refused.

Examples:
  keelstone clean --keep bgp_summary ospf_neighbors --dry-run
  keelstone clean --domain berlin --keep-file parsers.txt
  list-parsers | keelstone clean --keep-file - --format json

Exit codes: 0 done; 2 usage, or the domain or the list cannot be used, nothing removed; 3 not
all could be removed
)";

int Fail(const std::string& why, ExitCode code) {
  Console(false).Say("keelstone clean: " + why);
  return code;
}

/// Adds the lines of a list; the text says why it cannot be read. Blank lines do not
/// name a source.
std::string ReadList(const std::string& file, std::set<std::string>& names) {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file);
    if (!opened.is_open()) return Printable(file) + ": " + std::strerror(errno);
  }
  std::istream& input = file == "-" ? std::cin : opened;
  bool first = true;
  for (std::string line; std::getline(input, line); first = false) {
    std::string_view name = line;
    if (first && name.starts_with("\xef\xbb\xbf")) name.remove_prefix(3);
    if (name.ends_with('\r')) name.remove_suffix(1);
    if (!name.empty()) names.emplace(name);
  }
  return input.bad() ? Printable(file) + ": cannot be read" : std::string();
}

/// Why the domain cannot be worked on; empty when it can.
std::string DomainFault(const CleanOptions& options) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(options.common.domain, !options.dryRun);
  const std::string name = "domain \"" + Printable(options.common.domain) + "\"";
  if (check.condition == Condition::kAbsent) {
    return name + " has no databases: " + Printable(check.detail);
  }
  if (check.condition == Condition::kUnusable) {
    return name + " cannot be used: " + Printable(check.detail);
  }
  return {};
}

std::string Counted(std::int64_t number, const char* one, const char* many) {
  return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

std::string ResultText(const GoneSources& sources, bool dryRun) {
  if (sources.empty()) return "nothing to remove\n";
  std::string out;
  for (const auto& [source, rows] : sources) {
    out += (dryRun ? "would remove " : "removed ") + Printable(source) + ": " +
           Counted(rows.rules, "rule", "rules") + ", " +
           Counted(rows.histories, "history", "histories") + "\n";
  }
  return out;
}

std::string ResultJson(const GoneSources& sources, const CleanOptions& options) {
  std::string out = "{\"domain\":";
  AppendJsonString(out, options.common.domain);
  out += std::string(",\"dryRun\":") + (options.dryRun ? "true" : "false") + ",\"removed\":[";
  for (const auto& [source, rows] : sources) {
    if (out.back() == '}') out += ',';
    out += "{\"source\":";
    AppendJsonString(out, source);
    out += ",\"rules\":" + std::to_string(rows.rules) +
           ",\"histories\":" + std::to_string(rows.histories) + "}";
  }
  return out + "]}\n";
}

}  // namespace

void AddCleanCommand(CLI::App& program, CleanOptions& options) {
  CLI::App& command =
      *program.add_subcommand("clean", "Remove the rules and histories of sources that are gone");
  AddCommonOptions(command, options.common);
  command.add_option("--keep", options.keep, "Sources that are still there")->type_name("SOURCE");
  command
      .add_option("--keep-file", options.keepFile,
                  "File that names such sources, one a line; -: standard input")
      ->type_name("FILE");
  command.add_flag("--dry-run", options.dryRun, "Only list what would be removed");
  command
      .add_option("--format", options.format,
                  "How to say what was removed (default: text on a terminal, else json)")
      ->check(CLI::IsMember({"json", "text"}));
  command.footer(kHelpEnd);
}

int RunClean(const CleanOptions& options) {
  std::set<std::string> kept(options.keep.begin(), options.keep.end());
  if (!options.keepFile.empty()) {
    if (const std::string fault = ReadList(options.keepFile, kept); !fault.empty()) {
      return Fail(fault, kExitUnusable);
    }
  }
  // A list of empty names comes from a variable that was never set.
  if (kept.empty() || kept.rbegin()->empty()) {
    return Fail("no source to keep is named (--keep, --keep-file); nothing removed", kExitUnusable);
  }
  if (const std::string fault = DomainFault(options); !fault.empty()) {
    return Fail(fault, kExitUnusable);
  }
  GoneSources gone;
  bool removed = true;
  try {
    gone = FindGoneSources(options.common.domain, kept);
    if (!options.dryRun && !gone.empty()) removed = RemoveGoneSources(options.common.domain, kept);
  } catch (const CppSQLite3Exception& error) {
    return Fail(Printable(DomainFolder(options.common.domain) + ": " + error.errorMessage()),
                gone.empty() ? kExitUnusable : kExitBrokenOff);
  }
  if (!removed) {
    return Fail("not all of the sources that are gone could be removed; " +
                    Printable(VXFileSystem::GetSystemRootFolder()) + "log/keelstone.log says why",
                kExitBrokenOff);
  }
  const bool isText =
      options.format.empty() ? ::isatty(STDOUT_FILENO) == 1 : options.format == "text";
  std::cout << (isText ? ResultText(gone, options.dryRun) : ResultJson(gone, options));
  return std::cout.flush() ? kExitDone : kExitBrokenOff;
}

}  // namespace keelstone::host
