#include "program/commands/init_command.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <map>
#include <vector>

#include "keelstone/domain_files.h"
#include "keelstone/ini_reader.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/setting_paths.h"
#include "program/command_output.h"
#include "program/commands/general_settings.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr const char* kExamples = R"(Examples:
  keelstone init --root /var/lib/keelstone
  keelstone init --root /var/lib/keelstone --interval-time 60 --settings tuning.json

tuning.json holds only what is to differ from the defaults, e.g.
  {"intRange": {"stdCoefficient": 4}}  // comments are allowed
)";

constexpr const char* kName = "init";

int Refuse(const std::string& why) { return Fail(kName, why, kExitUnusable); }

/// Says so when settings were asked for and others are there already.
void WarnOfKeptSettings(const InitOptions& options, const JsonValue& stored,
                        const JsonValue& wanted) {
  if (options.settingsFile.empty() || stored.isNull() || stored == wanted) return;
  Fail(kName,
       "the domain has general settings already; they are left as they are and " +
           options.settingsFile + " is not applied",
       kExitDone);
}

/// Lays the file over the settings; what is wrong with it, or nothing.
std::string LayFileOver(const std::string& file, JsonValue& settings) {
  JsonValue overlay;
  std::string fault = ReadJsonObjectFile(file, overlay);
  if (!fault.empty()) return fault;
  fault = AcceptGeneralSettings(overlay);
  if (!fault.empty()) return file + ": " + fault;
  LayOver(settings, overlay);
  return {};
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
  JsonValue settings = DefaultGeneralSettings();
  if (!options.settingsFile.empty()) {
    const std::string fault = LayFileOver(options.settingsFile, settings);
    if (!fault.empty()) return Refuse(fault);
  }
  std::map<std::string, JsonValue> stored;
  if (const std::string fault = StoredSettings(options.common.domain, stored); !fault.empty()) {
    return Refuse(fault);
  }
  WarnOfKeptSettings(options, stored[kGeneralSettingRow], settings);
  std::vector<DomainFileReport> reports;
  const std::string failure = MakeDomain(options.common.domain, settings, &reports);
  CommandOutput output("text");
  for (const DomainFileReport& report : reports) {
    output.Line((report.changed ? "made " : "kept ") + report.file);
  }
  if (!failure.empty()) {
    output.End(kName);
    return Refuse(failure);
  }
  if (std::string why;
      options.intervalTime && !IniReader::SetInt("Keelstone", "IntervalTime", *options.intervalTime,
                                                 "fix_frontserver.ini", &why)) {
    output.End(kName);
    return Refuse("IntervalTime cannot be written: " + why);
  }
  return output.End(kName);
}

}  // namespace keelstone::host
