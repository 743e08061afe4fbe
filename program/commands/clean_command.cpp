#include "program/commands/clean_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <string_view>

#include "keelstone/domain_files.h"
#include "keelstone/gone_sources.h"
#include "keelstone/text_escape.h"
#include "program/command_output.h"
#include "program/console.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "clean";
constexpr std::size_t kNamesShown = 5;

constexpr const char* kHelpEnd =
    R"(Names are compared exactly. A source that is not named goes with all its rules, learned and
fixed, and their histories, on all devices. The list, and a file by itself, must name at
least one source that the domain knows. When more than half of the sources would go, a
terminal is asked first; without one, --yes says that it is meant.

Examples:
  keelstone clean --keep bgp_summary ospf_neighbors --dry-run
  keelstone clean --domain berlin --keep-file parsers.txt
  list-parsers | keelstone clean --keep-file - --yes --format json

Exit codes: 0 done; 2 usage, or the domain or the list cannot be used, nothing removed; 3 not
all could be removed, or what was removed could not be written to the output
)";

/// A list of sources to keep, as it was handed over.
struct KeepList {
  std::set<std::string> names;
  std::string from;  // "--keep" or the file
};

/// Adds the lines of a file; the text says why it cannot be read. Blank lines do not name a
/// source.
std::string ReadList(const std::string& file, std::set<std::string>& names) {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file);
    if (!opened.is_open()) return file + ": " + std::strerror(errno);
  }
  std::istream& input = file == "-" ? std::cin : opened;
  bool first = true;
  for (std::string line; std::getline(input, line); first = false) {
    std::string_view name = line;
    if (first && name.starts_with("\xef\xbb\xbf")) name.remove_prefix(3);
    // Every other byte of UTF-16 is a NUL where names are plain.
    if (name.find('\0') != std::string_view::npos ||
        (first && (name.starts_with("\xff\xfe") || name.starts_with("\xfe\xff")))) {
      return file + ": is UTF-16 or no text; the list must be UTF-8, one source a line";
    }
    if (name.ends_with('\r')) name.remove_suffix(1);
    if (!name.empty()) names.emplace(name);
  }
  return input.bad() ? file + ": cannot be read" : std::string();
}

/// The lists of the command line; the text says what is wrong with them.
std::string ReadLists(const CleanOptions& options, std::vector<KeepList>& lists) {
  std::set<std::string> all(options.keep.begin(), options.keep.end());
  if (!all.empty()) lists.push_back({all, "--keep"});
  if (!options.keepFile.empty()) {
    KeepList list{{}, options.keepFile == "-" ? "the list on standard input" : options.keepFile};
    if (std::string fault = ReadList(options.keepFile, list.names); !fault.empty()) return fault;
    all.insert(list.names.begin(), list.names.end());
    lists.push_back(std::move(list));
  }
  // A list of empty names comes from a variable that was never set.
  const bool isNamed = !all.empty() && !all.rbegin()->empty();
  return isNamed ? "" : "no source to keep is named (--keep, --keep-file); nothing removed";
}

/// Why the domain cannot be worked on; empty when it can.
std::string Fault(const CleanOptions& options) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(options.common.domain, !options.dryRun);
  const std::string name = "domain \"" + options.common.domain + "\"";
  if (check.condition == Condition::kAbsent) return name + " has no databases: " + check.detail;
  if (check.condition == Condition::kUnusable) return name + " cannot be used: " + check.detail;
  return {};
}

std::string Listed(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size() && i < kNamesShown; ++i) {
    text.append(i == 0 ? "\"" : ", \"").append(names[i]).append("\"");
  }
  if (names.size() > kNamesShown) {
    text += " and " + std::to_string(names.size() - kNamesShown) + " more";
  }
  return text;
}

std::string Counted(std::int64_t number, const char* one, const char* many) {
  return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

/// What is to be done with the sources of a domain.
struct Plan {
  SourceCounts gone;
  SourceCounts kept;
  std::set<std::string> known;  // stored or defined

  bool isMost() const { return gone.size() > kept.size(); }
};

/// Reads what the domain holds; the text says why it cannot be read.
std::string MakePlan(const std::string& domainId, const std::vector<KeepList>& lists, Plan& plan) {
  std::string fault = DefinedSources(domainId, plan.known);
  SourceCounts stored;
  if (fault.empty()) fault = StoredSources(domainId, stored);
  for (const auto& [source, rows] : stored) {
    plan.known.insert(source);
    bool isKept = false;
    for (const KeepList& list : lists) isKept |= list.names.contains(source);
    (isKept ? plan.kept : plan.gone).emplace(source, rows);
  }
  return fault;
}

/// Says which names of the lists nobody knows. What is wrong with a list that names no known
/// source at all; empty when each names one.
std::string CheckNames(const std::vector<KeepList>& lists, const Plan& plan) {
  std::vector<std::string> unknown;
  for (const KeepList& list : lists) {
    const std::size_t before = unknown.size();
    for (const std::string& name : list.names) {
      if (!plan.known.contains(name)) unknown.push_back(name);
    }
    if (unknown.size() - before < list.names.size()) continue;
    const std::vector<std::string> named(list.names.begin(), list.names.end());
    const std::vector<std::string> known(plan.known.begin(), plan.known.end());
    const bool hasComma = !named.empty() && named.front().find(',') != std::string::npos;
    return list.from + " names no source that is known here" +
           (named.empty() ? "" : ": " + Listed(named)) +
           (hasComma ? "; commas do not separate names" : "") + "; known: " + Listed(known) +
           "; nothing removed";
  }
  if (!unknown.empty()) Fail(kName, "note: not known here: " + Listed(unknown), kExitDone);
  return {};
}

/// Whether so many sources may go; asks a terminal.
bool IsMeant(const CleanOptions& options, const Plan& plan) {
  const std::string share =
      Counted(static_cast<std::int64_t>(plan.gone.size()), "source", "sources") + " of " +
      std::to_string(plan.gone.size() + plan.kept.size());
  std::vector<std::string> names;
  for (const auto& [source, rows] : plan.gone) names.push_back(source);
  const bool canAsk =
      options.keepFile != "-" && ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1;
  if (!canAsk || options.dryRun) {
    Fail(kName,
         options.dryRun ? "note: without --yes a terminal is asked: " + share + " would go"
                        : share + " would go: " + Listed(names) +
                              "; --yes says that it is meant; nothing removed",
         kExitUnusable);
    return options.dryRun;
  }
  std::cerr << "Remove " << share << " (" << Printable(Listed(names)) << ")? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  const bool isMeant = answer == "y" || answer == "Y" || answer == "yes";
  if (!isMeant) Fail(kName, "nothing removed", kExitUnusable);
  return isMeant;
}

void AddLines(const SourceCounts& sources, const char* verb, CommandOutput& output) {
  for (const auto& [source, rows] : sources) {
    output.Line(std::string(verb) + " " + source + ": " + Counted(rows.rules, "rule", "rules") +
                ", " + Counted(rows.histories, "history", "histories"));
  }
}

JsonValue JsonOf(const SourceCounts& sources) {
  JsonValue list(JsonType::Array);
  for (const auto& [source, rows] : sources) {
    JsonValue& one = list.append(JsonValue(JsonType::Object));
    one["source"] = source;
    one["rules"] = rows.rules;
    one["histories"] = rows.histories;
  }
  return list;
}

int Print(const CleanOptions& options, const Plan& plan) {
  CommandOutput output(options.format);
  if (output.isText()) {
    if (plan.gone.empty()) output.Line("nothing to remove");
    AddLines(plan.gone, options.dryRun ? "would remove" : "removed", output);
    AddLines(plan.kept, options.dryRun ? "would keep" : "kept", output);
  } else {
    JsonValue answer(JsonType::Object);
    answer["domain"] = options.common.domain;
    answer["dryRun"] = options.dryRun;
    answer["removed"] = JsonOf(plan.gone);
    answer["kept"] = JsonOf(plan.kept);
    output.Json(answer);
  }
  const int code = output.End(kName);
  if (code == kExitDone || options.dryRun || plan.gone.empty()) return code;
  const auto removed = static_cast<std::int64_t>(plan.gone.size());
  return Fail(kName, Counted(removed, "source was", "sources were") + " removed all the same",
              code);
}

}  // namespace

void AddCleanCommand(CLI::App& program, CleanOptions& options) {
  CLI::App& command =
      *program.add_subcommand(kName, "Remove the rules and histories of sources that are gone");
  AddCommonOptions(command, options.common);
  command.add_option("--keep", options.keep, "Sources that are still there")->type_name("SOURCE");
  command
      .add_option("--keep-file", options.keepFile,
                  "File that names such sources, one a line; -: standard input")
      ->type_name("FILE");
  command.add_flag("--dry-run", options.dryRun, "Only list what would be removed and kept");
  command.add_flag("--yes", options.yes, "Do not ask when more than half of the sources go");
  AddFormatOption(command, options.format);
  command.footer(kHelpEnd);
}

int RunClean(const CleanOptions& options) {
  std::vector<KeepList> lists;
  std::string fault = ReadLists(options, lists);
  if (fault.empty()) fault = Fault(options);
  if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  Plan plan;
  fault = MakePlan(options.common.domain, lists, plan);
  if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  if (plan.gone.empty()) return Print(options, plan);
  if (fault = CheckNames(lists, plan); !fault.empty()) return Fail(kName, fault, kExitUnusable);
  if (plan.isMost() && !options.yes && !IsMeant(options, plan)) return kExitUnusable;
  if (!options.dryRun) {
    std::set<std::string> gone;
    for (const auto& [source, rows] : plan.gone) gone.insert(source);
    if (!RemoveSources(options.common.domain, gone)) {
      return Fail(kName,
                  "not all of the sources that are gone could be removed: " + FirstFailureText(),
                  kExitBrokenOff);
    }
  }
  return Print(options, plan);
}

}  // namespace keelstone::host
