#include "program/report/report_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <set>
#include <system_error>

#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/object_listing.h"
#include "program/command_output.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/output_file.h"
#include "program/report/report_findings.h"
#include "program/report/report_page.h"
#include "program/report/report_results.h"
#include "program/report/report_selection.h"
#include "program/stop_request.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "report";
constexpr std::size_t kMostVariables = 10000000;
constexpr std::size_t kHistoriesAtOnce = 100;

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
  if (failure && failure.value() != ENOENT) {
    return folder.string() + ": " + std::strerror(failure.value());
  }
  std::sort(domains.begin(), domains.end());
  return {};
}

/// Puts the chosen variables on the page, those that are stored first.
class PageFiller {
 public:
  PageFiller(const ReportFindings& findings, const ReportSelection& selection, ReportPage& page)
      : findings_(findings), chosen_(selection.chosen()), page_(page) {}

  /// Adds those of a domain, or what of them comes before a stop is requested; the text says
  /// why what is stored cannot be read.
  std::string AddStored(const std::string& domain, const StopRequest& stop) {
    ObjectListing listing = ListVariables(domain);
    std::vector<StoredObject> listed;
    do {
      std::string fault = listing.NextPage(listed);
      if (fault.empty() && !stop.Requested()) fault = AddListed(domain, listing, listed);
      if (!fault.empty()) return fault;
    } while (!listed.empty() && !stop.Requested());
    return {};
  }

  /// Adds those that only the results know.
  void AddOthers() {
    for (const auto& [key, variable] : findings_.variables()) {
      const bool isChosen = chosen_.contains(FingerprintOf(key));
      if (isChosen && !shown_.contains(&variable)) page_.Add(key, {}, &variable);
    }
  }

 private:
  std::string AddListed(const std::string& domain, const ObjectListing& listing,
                        std::vector<StoredObject>& listed) {
    std::vector<StoredObject*> batch;
    std::string fault;
    for (StoredObject& variable : listed) {
      if (!chosen_.contains(FingerprintOf(KeyOf(domain, variable)))) continue;
      batch.push_back(&variable);
      if (batch.size() == kHistoriesAtOnce) fault = AddBatch(domain, listing, batch);
      if (!fault.empty()) return fault;
    }
    return AddBatch(domain, listing, batch);
  }

  std::string AddBatch(const std::string& domain, const ObjectListing& listing,
                       std::vector<StoredObject*>& batch) {
    std::string fault = listing.ReadHistories(batch);
    if (!fault.empty()) return fault;
    for (StoredObject* variable : batch) {
      const ReportKey key = KeyOf(domain, *variable);
      const auto found = findings_.variables().find(key);
      const bool isFound = found != findings_.variables().end();
      page_.Add(key, *variable, isFound ? &found->second : nullptr);
      if (isFound) shown_.insert(&found->second);
      variable->history = {};  // only those of a batch are in memory
    }
    batch.clear();
    return {};
  }

  const ReportFindings& findings_;
  const ReportFindings::Chosen& chosen_;
  ReportPage& page_;
  std::set<const VariableFindings*> shown_;
};

void SayWhatIsLeftOut(const ReportTotals& totals, std::uint64_t shown) {
  if (totals.variables <= shown) return;
  Console(false).Say("keelstone report: the page shows the " + std::to_string(shown) +
                     " most important of " + std::to_string(totals.variables) +
                     " variables; --max-variables shows more");
}

/// Writes the page; the exit code.
int WritePage(const ReportOptions& options, const std::vector<std::string>& domains,
              const StopRequest& stop) {
  ReportFindings findings(options.maxVariables);
  ReportResults results(domains, options.maxLine, stop, findings);
  for (const std::string& file : options.results) {
    const std::string fault = results.Read(file);
    if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  }
  ReportSelection selection(options.maxVariables);
  std::string fault = selection.Choose(domains, findings, stop);
  if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  if (findings.isCrowded()) {
    findings.Restart(selection.chosen());
    fault = results.ReadAgain();
    if (!fault.empty()) return Fail(kName, fault, kExitBrokenOff);
  }
  OutputFile output(options.output);
  if (!output.fault().empty()) return Fail(kName, output.fault(), kExitBrokenOff);
  const ReportHead head = {.created = std::time(nullptr),
                           .domains = domains,
                           .hasResults = !options.results.empty(),
                           .skippedLines = results.skipped(),
                           .totals = selection.totals()};
  ReportPage page(output, head, findings);
  PageFiller filler(findings, selection, page);
  for (const std::string& domain : domains) {
    fault = filler.AddStored(domain, stop);
    if (fault.empty()) continue;
    return Fail(kName, fault, page.variables() == 0 ? kExitUnusable : kExitBrokenOff);
  }
  filler.AddOthers();
  if (stop.Requested()) return Fail(kName, "stopped; no page is written", kExitBrokenOff);
  page.End();
  if (!output.Finish()) return Fail(kName, output.fault(), kExitBrokenOff);
  SayWhatIsLeftOut(head.totals, page.variables());
  return results.skipped() > 0 ? kExitLinesSkipped : kExitDone;
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
  RequireRange(
      *command
           .add_option("--max-variables", options.maxVariables,
                       "The most variables that the page shows: those that alert, the latest "
                       "first, then those that have alerted, then the others")
           ->type_name("N")
           ->capture_default_str(),
      1, kMostVariables);
  AddMaxLineOption(command, options.maxLine);
  command.footer(kHelpEnd);
}

int RunReport(const ReportOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  StopRequest stop;
  const SignalWatch watch(stop, [](int) {});
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
  return WritePage(options, domains, stop);
}

}  // namespace keelstone::host
