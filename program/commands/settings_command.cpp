#include "program/commands/settings_command.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <vector>

#include "keelstone/cppsqlite3.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
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

/// A row of the table; of two rows with one name the later counts.
struct SettingRow {
  std::int64_t id = 0;
  JsonValue value;
};

std::optional<SettingRow> ReadRow(CppSQLite3DB& db, const std::string& name) {
  std::optional<SettingRow> found;
  CppSQLite3Statement select = db.compileStatement("select id, data from KSGlobalSetting");
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    JsonValue row;
    if (!JsonReader::Parse(rows.getStringField(1), row)) continue;
    const JsonValue* const rowName = row.find("name");
    if (rowName == nullptr || !rowName->isString() || rowName->stringRef() != name) continue;
    found = SettingRow{rows.getInt64Field(0), row["value"]};
  }
  return found;
}

void WriteRow(CppSQLite3DB& db, const std::optional<SettingRow>& old, const std::string& name,
              const JsonValue& value) {
  JsonValue row(JsonType::Object);
  row["name"] = name;
  row["value"] = value;
  CppSQLite3Statement write =
      db.compileStatement(old ? "update KSGlobalSetting set data = ? where id = ?"
                              : "insert into KSGlobalSetting (data) values (?)");
  write.bind(1, std::string_view(row.toString()));
  if (old) write.bind(2, old->id);
  write.execDML();
}

/// The setting's value within its row; nullptr when it is not stored.
const JsonValue* Find(const JsonValue& row, const SettingPath& setting) {
  const JsonValue* place = &row;
  for (const std::string& member : setting.members) {
    place = place->find(member);
    if (place == nullptr) return nullptr;
  }
  return place;
}

/// Puts the value in its place; false when something that is no object is in the way.
bool Put(JsonValue& row, const SettingPath& setting, const JsonValue& value) {
  JsonValue* place = &row;
  for (const std::string& member : setting.members) {
    if (!place->isNull() && !place->isObject()) return false;
    place = &(*place)[member];
  }
  *place = value;
  return true;
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

/// Sets the value within a transaction; what is in the way, or nothing.
std::string Change(CppSQLite3DB& db, const SettingPath& setting, const JsonValue& value) {
  db.execDML("begin immediate transaction;");
  const std::optional<SettingRow> old = ReadRow(db, setting.row);
  JsonValue row = old ? old->value : JsonValue();
  // Members that are absent read as 0: without a row the others start as `init` has them.
  if (!old && setting.row == kGeneralSettingRow) row = DefaultGeneralSettings();
  if (!Put(row, setting, value)) {
    return "the stored " + setting.row + " is no object where " + setting.path + " lies";
  }
  WriteRow(db, old, setting.row, row);
  db.execDML("commit transaction;");
  return {};
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
  CommandOutput output(options.format);
  try {
    CppSQLite3DB db;
    db.open(DomainDatabase(kDbGlobalSetting, options.common.domain),
            CppSQLite3DB::Mode::kReadWrite);
    for (const SettingPath& setting : chosen) {
      const std::optional<SettingRow> row = ReadRow(db, setting.row);
      const JsonValue* const value = row ? Find(row->value, setting) : nullptr;
      if (value != nullptr) {
        Print(setting.path, *value, output);
      } else if (setting.path == options.path) {
        return Fail(kGetName, setting.path + " is not stored", kExitUnusable);
      }
    }
  } catch (const CppSQLite3Exception& error) {
    return Fail(kGetName, FaultOf(error), kExitUnusable);
  }
  return output.End(kGetName);
}

int RunSettingsSet(const SettingsOptions& options) {
  SettingPath setting;
  JsonValue value;
  std::string fault = ReadSetting(options, setting, value);
  if (fault.empty()) fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kSetName, fault, kExitUnusable);
  try {
    CppSQLite3DB db;
    db.open(DomainDatabase(kDbGlobalSetting, options.common.domain),
            CppSQLite3DB::Mode::kReadWrite);
    fault = Change(db, setting, value);
  } catch (const CppSQLite3Exception& error) {
    return Fail(kSetName, FaultOf(error), kExitBrokenOff);
  }
  if (!fault.empty()) return Fail(kSetName, fault, kExitUnusable);
  CommandOutput output(options.format);
  Print(setting.path, value, output);
  return output.End(kSetName);
}

}  // namespace keelstone::host
