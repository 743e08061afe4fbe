#include "host/report_command.h"

#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <set>
#include <system_error>

#include "host/command_output.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/line_reader.h"
#include "host/output_file.h"
#include "host/report_findings.h"
#include "host/report_listing.h"
#include "host/report_page.h"
#include "host/stop_request.h"
#include "platform/filesystem.h"
#include "platform/text_escape.h"
#include "storage/domain_files.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "report";
constexpr std::uint64_t kFaultsShown = 20;

constexpr const char* kHelpEnd =
    R"(The page needs nothing but itself: one HTML file that loads nothing, to be opened in a
browser, mailed or archived. It shows every variable with its history, its rule, and, where
results are given, its alerts. Results tell most when they were made with --all (which runs
cleared an alert) and --explain.

Examples:
  keelstone report --output report.html
  keelstone evaluate --all --format json runs.jsonl > results.jsonl
  keelstone report --output report.html --results results.jsonl
  zcat results-*.jsonl.gz | keelstone report --output report.html --results -

Exit codes: 0 done; 1 done, but lines of the results were skipped; 2 usage, or the root or a
database cannot be used; 3 broken off, or the page could not be written
)";

/// The id whose folder has this name; what is no such name gives an id of another folder.
std::string DomainOfFolder(std::string_view name) {
  if (name == "%") return {};
  const auto digit = [](char c) {
    const std::size_t place = std::string_view("0123456789ABCDEF").find(c);
    return place == std::string_view::npos ? 16U : static_cast<unsigned>(place);
  };
  std::string id;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool isEscape = name[i] == '%' && i + 2 < name.size() && digit(name[i + 1]) < 16U &&
                          digit(name[i + 2]) < 16U;
    if (!isEscape) {
      id.push_back(name[i]);
      continue;
    }
    id.push_back(static_cast<char>(digit(name[i + 1]) * 16U + digit(name[i + 2])));
    i += 2;
  }
  return id;
}

/// All domains of the root that have databases, in order; the text says why they cannot be
/// listed. A folder that is not there holds none.
std::string DomainsOfRoot(std::vector<std::string>& domains) {
  const std::filesystem::path folder = std::filesystem::path(DomainFolder("any")).parent_path();
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    const std::string id = DomainOfFolder(name);
    if (DomainFolderName(id) != name) continue;
    if (CheckDomain(id, false).condition != DomainCheck::Condition::kAbsent) domains.push_back(id);
  }
  if (failure && failure != std::errc::no_such_file_or_directory) {
    return folder.string() + ": " + failure.message();
  }
  std::sort(domains.begin(), domains.end());
  return {};
}

/// Reads result files, and counts the lines that are none.
class ResultReading {
 public:
  ResultReading(const std::vector<std::string>& domains, const StopRequest& stop,
                ReportFindings& findings)
      : domains_(domains), stop_(stop), findings_(findings) {}

  /// Why a file cannot be read; empty when all of it was.
  std::string Read(const std::string& path) {
    const std::string name = path == "-" ? "<stdin>" : Printable(path);
    FileDescriptor file;
    if (path != "-") {
      file = FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
      if (!file.valid()) return name + ": " + std::strerror(errno);
    }
    LineReader reader(file.valid() ? file.get() : STDIN_FILENO, stop_);
    std::string_view line;
    while (true) {
      const LineReader::Got got = reader.Next(line);
      if (got == LineReader::Got::kFailed) return name + ": " + std::strerror(errno);
      if (got != LineReader::Got::kLine) return {};
      if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
      if (!findings_.Take(line, domains_)) Skip(name, reader.lineNumber());
    }
  }
  std::uint64_t skipped() const noexcept { return skipped_; }

 private:
  void Skip(const std::string& name, std::uint64_t number) {
    ++skipped_;
    if (skipped_ <= kFaultsShown) {
      Console(false).Say(name + ":" + std::to_string(number) + ": " + findings_.fault());
    } else if (skipped_ == kFaultsShown + 1) {
      Console(false).Say("keelstone report: further lines that are skipped are only counted");
    }
  }

  const std::vector<std::string>& domains_;
  const StopRequest& stop_;
  ReportFindings& findings_;
  std::uint64_t skipped_ = 0;
};

/// Adds the variables of all domains, and then those that only the results know; ends early
/// when a stop is requested.
void AddVariables(const std::vector<std::string>& domains, const ReportFindings& findings,
                  const StopRequest& stop, ReportPage& page) {
  std::set<const VariableFindings*> shown;
  for (const std::string& domain : domains) {
    ReportListing listing(domain);
    for (auto stored = listing.NextPage(); !stored.empty(); stored = listing.NextPage()) {
      if (stop.Requested()) return;
      for (const StoredVariable& variable : stored) {
        const auto& [device, interface, source, param, name] = variable.key;
        const ReportKey key = {domain, device, interface, source, param, name};
        const auto found = findings.variables().find(key);
        const bool isFound = found != findings.variables().end();
        page.Add(key, variable, isFound ? &found->second : nullptr);
        if (isFound) shown.insert(&found->second);
      }
    }
  }
  for (const auto& [key, variable] : findings.variables()) {
    if (!shown.contains(&variable)) page.Add(key, {}, &variable);
  }
}

}  // namespace

void AddReportCommand(CLI::App& program, ReportOptions& options) {
  CLI::App& command =
      *program.add_subcommand(kName, "Write an HTML page of what was learned and found");
  AddCommonOptions(command, options.common);
  command.get_option("--domain")
      ->default_str("all domains of the root")
      ->each([&options](const std::string&) { options.allDomains = false; });
  command.add_option("--output", options.output, "The file to write; - is standard output")
      ->type_name("FILE")
      ->required();
  command
      .add_option("--results", options.results,
                  "Results of `keelstone evaluate --format json`, in the order in which they were "
                  "made; - is standard input")
      ->type_name("FILE");
  command.footer(kHelpEnd);
}

int RunReport(const ReportOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  StopRequest stop;
  const SignalWatch watch([&stop](int) { stop.Request(); });
  std::vector<std::string> domains = {options.common.domain};
  if (options.allDomains) {
    domains.clear();
    const std::string fault = DomainsOfRoot(domains);
    if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  }
  if (domains.empty()) {
    return Fail(kName,
                "there is no domain in the root folder " + VXFileSystem::GetSystemRootFolder() +
                    "; `keelstone init` makes one",
                kExitUnusable);
  }
  for (const std::string& domain : domains) {
    const std::string fault = DomainFault(domain, false);
    if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  }
  ReportFindings findings;
  ResultReading reading(domains, stop, findings);
  for (const std::string& file : options.results) {
    const std::string fault = reading.Read(file);
    if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  }
  OutputFile output(options.output);
  if (!output.fault().empty()) return Fail(kName, output.fault(), kExitBrokenOff);
  const ReportHead head = {.created = std::time(nullptr),
                           .domains = domains,
                           .hasResults = !options.results.empty(),
                           .skippedLines = reading.skipped()};
  ReportPage page(output, head, findings);
  try {
    AddVariables(domains, findings, stop, page);
  } catch (const CppSQLite3Exception& error) {
    return Fail(kName, FaultOf(error), page.variables() == 0 ? kExitUnusable : kExitBrokenOff);
  }
  if (stop.Requested()) return Fail(kName, "stopped; no page is written", kExitBrokenOff);
  page.End();
  if (!output.Finish()) return Fail(kName, output.fault(), kExitBrokenOff);
  return reading.skipped() > 0 ? kExitLinesSkipped : kExitDone;
}

}  // namespace keelstone::host
