#include "program/evaluate/evaluate_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>

#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/text_escape.h"
#include "program/console.h"
#include "program/evaluate/evaluate_job.h"
#include "program/exit_codes.h"
#include "program/file_descriptor.h"

namespace keelstone::host {

namespace {

constexpr const char* kStandardInputName = "<stdin>";
constexpr unsigned kMaxThreads = 1024;

constexpr const char* kHelpEnd = R"(Input: one parser run on one device a line, e.g.
  {"time":1700000000,"device":"r1","source":"bgp","variables":[{"name":"peers","value":12}]}

Text tells alerts of one variable that follow each other as one: ALERT when they begin,
CLEAR when a value fits again, and at the end OPEN for what has not ended. JSON keeps every
alert; --explain adds to each run "explanations", one an alert in the order of "alertItems",
and "cleared", the variables that fit again.

Examples:
  keelstone evaluate --enroll runs.jsonl
  keelstone evaluate --explain --format json runs.jsonl | jq -r '.explanations[].sentence'
  zcat *.jsonl.gz | keelstone evaluate --format json > results.jsonl
  keelstone evaluate --on-demand --fail-on-alert --quiet now.jsonl

Exit codes: 0 done; 1 done, but lines were skipped; 2 usage, or the root or a database
cannot be used; 3 broken off, or not all is on disk; 4 an alert (with --fail-on-alert)
)";

int Refuse(const std::string& why) {
  Console(false).Say("keelstone evaluate: " + why);
  return kExitUnusable;
}

std::vector<InputFile> InputsOf(const EvaluateOptions& options) {
  std::vector<InputFile> inputs;
  for (const std::string& file : options.files) {
    inputs.push_back({file, file == "-" ? kStandardInputName : Printable(file)});
  }
  if (inputs.empty()) inputs.push_back({"-", kStandardInputName});
  return inputs;
}

/// Whether the input can be read; if not, errno says why. Its length is added to `total`
/// when it has one. A pipe is not opened: closing it would end whoever writes to it.
bool IsReadable(const InputFile& input, std::uint64_t& total) {
  struct stat status{};
  const bool isStandard = input.path == "-";
  const int failed =
      isStandard ? ::fstat(STDIN_FILENO, &status) : ::stat(input.path.c_str(), &status);
  if (failed != 0) return false;
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    return false;
  }
  if (isStandard) {
    const int mode = ::fcntl(STDIN_FILENO, F_GETFL);
    errno = EBADF;
    if (mode < 0 || (mode & O_ACCMODE) == O_WRONLY) return false;
  } else if (!S_ISREG(status.st_mode)) {
    return ::access(input.path.c_str(), R_OK) == 0;
  } else if (!FileDescriptor(::open(input.path.c_str(), O_RDONLY | O_CLOEXEC)).valid()) {
    return false;
  }
  if (S_ISREG(status.st_mode)) total += static_cast<std::uint64_t>(status.st_size);
  return true;
}

/// Why the root folder cannot be worked with; empty when it can.
std::string RootFault(const EvaluateOptions& options) {
  const std::string root = VXFileSystem::GetSystemRootFolder();
  std::error_code failure;
  const auto status = std::filesystem::status(root, failure);
  const bool isThere = status.type() != std::filesystem::file_type::not_found;
  if (!isThere && options.enroll) return {};  // made with the first domain
  if (!isThere) {
    return "there is no root folder " + Printable(root) +
           "; `keelstone init` makes one, and `evaluate --enroll` does so too";
  }
  if (!std::filesystem::is_directory(status)) {
    return Printable(root) + ": " + (failure ? failure.message() : std::string("is no folder"));
  }
  return {};
}

}  // namespace

std::size_t DefaultMemory() {
  constexpr std::size_t kLeast = 64U << 20U;
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageBytes = ::sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageBytes <= 0) return kLeast;
  return std::max(kLeast,
                  static_cast<std::size_t>(pages) / 4 * static_cast<std::size_t>(pageBytes));
}

void AddEvaluateCommand(CLI::App& program, EvaluateOptions& options) {
  CLI::App& command = *program.add_subcommand(
      "evaluate", "Evaluate parser runs: learn, check, and print what was found");
  AddCommonOptions(command, options.common);
  command.add_option("FILE", options.files, "JSON Lines files; - or none: standard input");
  command
      .add_option("--format", options.format,
                  "json: one line a run; text: one line a finding (default: text on a terminal, "
                  "else json)")
      ->check(CLI::IsMember({"json", "text"}));
  RequireRange(
      *command.add_option("--threads", options.threads, "Evaluating threads (default: the cores)")
           ->type_name("N"),
      1, kMaxThreads);
  AddMaxLineOption(command, options.maxLine);
  RequireRange(*command
                    .add_option("--memory", options.memory,
                                "Memory for the state of devices from run to run: bytes, or as in "
                                "512mb, 2gb (default: a quarter of the machine's); 0: it is read "
                                "and written for each run")
                    ->type_name("SIZE")
                    ->transform(CLI::AsSizeValue(false)),
               0, std::numeric_limits<std::int64_t>::max());
  command.add_flag("--explain", options.explain,
                   "With json, explain every alert: what was expected, why, since when");
  command.add_flag("--all", options.all, "With json, also print runs without results");
  command.add_flag("--enroll", options.enroll,
                   "Define variables and make domains that are not there yet");
  command.add_flag("--on-demand", options.onDemand, "Check without learning");
  command.add_flag("--fail-on-alert", options.failOnAlert, "Exit code 4 when there was an alert");
  command.add_flag("--strict", options.strict, "Stop at the first line that is no run");
  command.add_flag("--judge-repeated", options.stages.judgeRepeated,
                   "Judge values again that were judged before");
  command.add_flag("--allow-duplicates", options.stages.allowDuplicates,
                   "Evaluate a second value of one variable and interface in a run, too");
  RequireRange(*command
                    .add_option("--max-ahead", options.stages.maxAhead,
                                "How far the time of a run may lie ahead of the clock (default: "
                                "86400, a day); 0: times are taken as they come")
                    ->type_name("SECONDS"),
               0, std::numeric_limits<std::int64_t>::max());
  command.add_flag("--quiet", options.quiet, "No progress and no summary on standard error");
  command.footer(kHelpEnd);
}

int RunEvaluate(const EvaluateOptions& options) {
  const std::vector<InputFile> inputs = InputsOf(options);
  std::uint64_t total = 0;
  for (const InputFile& input : inputs) {
    if (!IsReadable(input, total)) return Refuse(input.name + ": " + std::strerror(errno));
  }
  if (const std::string fault = RootFault(options); !fault.empty()) return Refuse(fault);
  const bool isText =
      options.format.empty() ? ::isatty(STDOUT_FILENO) == 1 : options.format == "text";
  return EvaluateJob(options, isText ? OutputFormat::kText : OutputFormat::kJson, total)
      .Run(inputs);
}

}  // namespace keelstone::host
