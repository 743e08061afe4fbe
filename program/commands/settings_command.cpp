#include "program/commands/settings_command.h"

#include <CLI/CLI.hpp>
#include <map>
#include <vector>

#include "keelstone/domain_edits.h"
#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/setting_paths.h"
#include "program/command_output.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr const char* kGetName = "settings get";
constexpr const char* kSetName = "settings set";

constexpr const char* kGroupHelpEnd = R"(Examples:
  keelstone settings get intRange --format text
  keelstone settings set intRange.stdCoefficient 4

`keelstone settings COMMAND --help` says more about a command.
)";

constexpr const char* kGetHelpEnd =
    R"(PATH is the name of a row, a path into the general settings, or the beginning of such
paths. Without it all settings are shown.

Examples:
  keelstone settings get KSTableCountLimit
  keelstone settings get intRange --format text
  keelstone settings get intEqual.condition0.deltaEZero

Exit codes: 0 done; 2 usage, no such setting, or the root or a database cannot be used; 3
the output could not be written
)";

constexpr const char* kSetHelpEnd =
    R"(The value is JSON. A running evaluation sees it when it is started next. A negative number
follows after --.

Examples:
  keelstone settings set intRange.stdCoefficient 4
  keelstone settings set EnableKSFunction false
  keelstone settings set KSInterfaceFilter '{"value":["Vlan","Loopback"]}'
  keelstone settings set -- intRange.lowerBoundMinValue -100

Exit codes: 0 done; 2 usage, no such setting, or the root or a database cannot be used; 3
not written
)";

/// The setting's value within its row; nullptr when it is not stored.
const JsonValue* Find(const JsonValue& row, const SettingPath& setting) {
  const JsonValue* place = &row;
  for (const std::string& member : setting.members) {
    place = place->find(member);
    if (place == nullptr) return nullptr;
  }
  return place;
}

void Print(const std::string& path, const JsonValue& value, CommandOutput& output) {
  if (output.isText()) {
    output.Line(path + " = " + SettingText(value));
    return;
  }
  JsonValue object(JsonType::Object);
  object["path"] = path;
  object["value"] = value;
  output.Json(object);
}

/// The settings that a path of `get` names: one, or all below it.
std::vector<SettingPath> Choose(const std::string& path, const std::vector<SettingPath>& all) {
  std::vector<SettingPath> chosen;
  const std::string start = path + ".";
  for (const SettingPath& setting : all) {
    if (path.empty() || setting.path == path || setting.path.starts_with(start) ||
        (path == kGeneralSettingRow && setting.row == path)) {
      chosen.push_back(setting);
    }
  }
  return chosen;
}

/// Finds the setting and reads the value; what is wrong with them, or nothing.
std::string ReadSetting(const SettingsOptions& options, SettingPath& setting, JsonValue& value) {
  const std::vector<SettingPath> all = SettingPaths();
  bool isKnown = false;
  for (const SettingPath& known : all) {
    if (known.path != options.path) continue;
    setting = known;
    isKnown = true;
  }
  if (!isKnown) return NoSuchSetting(options.path);
  JsonParseError error;
  const JsonReadOptions reading{.allowComments = false, .requireUtf8 = true};
  if (!JsonReader::Parse(options.value, value, &error, reading)) {
    return "the value is not JSON: " + error.message + " at byte " + std::to_string(error.offset);
  }
  const std::string demand = setting.Accept(value);
  return demand.empty() ? demand : options.path + " must be " + demand;
}

}  // namespace

void AddSettingsCommand(CLI::App& program, SettingsOptions& options) {
  CLI::App& group = *program.add_subcommand("settings", "The global settings of a domain");
  group.require_subcommand(1);
  group.footer(kGroupHelpEnd);
  CLI::App& get = *group.add_subcommand("get", "Show settings");
  AddCommonOptions(get, options.common);
  AddFormatOption(get, options.format);
  get.add_option("PATH", options.path, "Which");
  get.footer(kGetHelpEnd);
  CLI::App& set = *group.add_subcommand("set", "Change one setting");
  AddCommonOptions(set, options.common);
  AddFormatOption(set, options.format);
  set.add_option("PATH", options.path, "Which")->required();
  set.add_option("VALUE", options.value, "Its new value")->type_name("JSON")->required();
  set.footer(kSetHelpEnd);
}

int RunSettingsGet(const SettingsOptions& options) {
  const std::vector<SettingPath> all = SettingPaths();
  const std::vector<SettingPath> chosen = Choose(options.path, all);
  if (chosen.empty()) return Fail(kGetName, NoSuchSetting(options.path), kExitUnusable);
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kGetName, fault, kExitUnusable);
  std::map<std::string, JsonValue> rows;
  if (const std::string why = StoredSettings(options.common.domain, rows); !why.empty()) {
    return Fail(kGetName, why, kExitUnusable);
  }
  CommandOutput output(options.format);
  for (const SettingPath& setting : chosen) {
    const auto row = rows.find(setting.row);
    const JsonValue* const value = row != rows.end() ? Find(row->second, setting) : nullptr;
    if (value != nullptr) {
      Print(setting.path, *value, output);
    } else if (setting.path == options.path) {
      return Fail(kGetName, setting.path + " is not stored", kExitUnusable);
    }
  }
  return output.End(kGetName);
}

int RunSettingsSet(const SettingsOptions& options) {
  SettingPath setting;
  JsonValue value;
  std::string fault = ReadSetting(options, setting, value);
  if (fault.empty()) fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kSetName, fault, kExitUnusable);
  const EditOutcome outcome = StoreSetting(options.common.domain, setting, value);
  if (outcome.kind != EditOutcome::Kind::kDone) return Fail(kSetName, outcome);
  CommandOutput output(options.format);
  Print(setting.path, value, output);
  return output.End(kSetName);
}

}  // namespace keelstone::host
