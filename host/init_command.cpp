#include "host/init_command.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <limits>
#include <system_error>
#include <vector>

#include "calc/ksruleglobalsetting.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/general_settings.h"
#include "platform/cppsqlite3.h"
#include "platform/filesystem.h"
#include "platform/ini_reader.h"
#include "platform/text_escape.h"
#include "storage/domain_files.h"

namespace keelstone::host {

namespace {

constexpr const char* kExamples = R"(Examples:
  keelstone init --root /var/lib/keelstone
  keelstone init --root /var/lib/keelstone --interval-time 60 --settings tuning.json

tuning.json holds only what is to differ from the defaults, e.g.
  {"intRange": {"stdCoefficient": 4}}  // comments are allowed
)";

int Refuse(Console& console, const std::string& why) {
  console.Say("keelstone init: " + Printable(why));
  return kExitUnusable;
}

/// Says so when settings were asked for and others are there already.
void WarnOfKeptSettings(Console& console, const InitOptions& options, const JsonValue& stored,
                        const JsonValue& wanted) {
  if (options.settingsFile.empty() || stored.isNull() || stored == wanted) return;
  console.Say(
      "keelstone init: the domain has general settings already; they are left as they "
      "are and " +
      Printable(options.settingsFile) + " is not applied");
}

}  // namespace

void AddInitCommand(CLI::App& program, InitOptions& options) {
  CLI::App& command = *program.add_subcommand(
      "init", "Make a domain's databases with the default settings; what is there stays");
  AddCommonOptions(command, options.common);
  command
      .add_option("--settings", options.settingsFile,
                  "JSON document of general settings, laid over the defaults member by member")
      ->type_name("FILE");
  RequireRange(*command
                    .add_option("--interval-time", options.intervalTime,
                                "Seconds that must pass between two values of a variable without "
                                "a rule for both to be kept (IntervalTime in "
                                "conf/fix_frontserver.ini)")
                    ->type_name("SECONDS"),
               0, std::numeric_limits<int>::max());
  command.footer(kExamples);
}

int RunInit(const InitOptions& options) {
  Console console(false);
  JsonValue settings = DefaultGeneralSettings();
  if (!options.settingsFile.empty()) {
    JsonValue overlay;
    const std::string fault = ReadJsonObjectFile(options.settingsFile, overlay);
    if (!fault.empty()) return Refuse(console, fault);
    LayOver(settings, overlay);
  }
  try {
    WarnOfKeptSettings(console, options, StoredGeneralSettings(options.common.domain), settings);
  } catch (const CppSQLite3Exception& error) {
    return Refuse(console, error.file() + ": " + error.errorMessage());
  }
  std::vector<DomainFileReport> reports;
  const std::string failure = MakeDomain(options.common.domain, settings, &reports);
  for (const DomainFileReport& report : reports) {
    std::cout << (report.changed ? "made " : "kept ") << Printable(report.file) << '\n';
  }
  if (!failure.empty()) return Refuse(console, failure);
  if (options.intervalTime && !IniReader::SetInt("Keelstone", "IntervalTime", *options.intervalTime,
                                                 "fix_frontserver.ini")) {
    return Refuse(console, "IntervalTime cannot be written to " +
                               VXFileSystem::GetSystemRootFolder() + "conf/fix_frontserver.ini");
  }
  return std::cout.flush() ? kExitDone : kExitBrokenOff;
}

}  // namespace keelstone::host
