#include "program/commands/block_command.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <set>

#include "keelstone/clock.h"
#include "keelstone/cppsqlite3.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "program/command_output.h"
#include "program/exit_codes.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

constexpr const char* kListName = "block list";
constexpr const char* kAddName = "block add";
constexpr const char* kRemoveName = "block remove";

constexpr const char* kGroupHelpEnd = R"(Examples:
  keelstone block add --device r1 --from now --to "2026-11-21 10:30 +01:00"
  keelstone block list
  keelstone block remove 3

`keelstone block COMMAND --help` says more about a command.
)";

constexpr const char* kListHelpEnd = R"(Examples:
  keelstone block list
  keelstone block list --format json | jq 'select(.active) | .devices[]'

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 the output could
not be written
)";

constexpr const char* kAddHelpEnd =
    R"(Nothing is learned of a device while one of its periods lasts; both ends belong to it.
Times are seconds since the epoch, local times with their zone, or now. A running
evaluation sees the period when it is started next.

Examples:
  keelstone block add --device r1 r2 --from "2026-11-21 08:00 +01:00" --to "2026-11-21 10:30 +01:00"
  keelstone block add --device r3 --from 2026-11-21T08:00:00Z --to 2026-11-21T09:00:00Z
  keelstone block add --device r4 --from now --to "2026-11-21 10:30 +01:00"
  keelstone block add --device r5 --from 1700000000 --to 1700003600

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 not written
)";

constexpr const char* kRemoveHelpEnd =
    R"(Removes all of the periods, or, when there is none with one of the ids, nothing.

Examples:
  keelstone block remove 3 --dry-run
  keelstone block remove 3 4

Exit codes: 0 done; 2 usage, no such period, or the root or a database cannot be used; 3
not removed
)";

/// One row of the table; what is no block period is passed over by whoever reads it.
struct BlockPeriod {
  std::int64_t id = 0;
  std::vector<std::string> devices;
  std::int64_t from = 0;
  std::int64_t to = 0;
};

std::optional<BlockPeriod> ReadPeriod(std::int64_t id, std::string_view text) {
  JsonValue row;
  if (!JsonReader::Parse(text, row) || !row.isObject()) return std::nullopt;
  BlockPeriod period;
  period.id = id;
  try {
    const JsonValue& constant = row;
    period.from = constant["blockTimeStart"].asTime();
    period.to = constant["blockTimeEnd"].asTime();
    if (!constant["nodes"].isArray()) return period;
    for (const JsonValue& node : constant["nodes"]) {
      period.devices.push_back(node["deviceName"].asString());
    }
  } catch (const JsonError&) {
    return std::nullopt;
  }
  return period;
}

std::vector<BlockPeriod> ReadPeriods(CppSQLite3DB& db) {
  std::vector<BlockPeriod> periods;
  CppSQLite3Statement select =
      db.compileStatement("select id, data from KSBlockSetting order by id");
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    std::optional<BlockPeriod> period = ReadPeriod(rows.getInt64Field(0), rows.getStringField(1));
    if (period) periods.push_back(std::move(*period));
  }
  return periods;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all.append(all.empty() ? "" : ", ").append(text);
  return all;
}

bool IsActive(const BlockPeriod& period) {
  const std::int64_t now = Clock::NowSeconds();
  return period.from <= now && now <= period.to;
}

JsonValue JsonOf(const BlockPeriod& period) {
  JsonValue object(JsonType::Object);
  object["id"] = period.id;
  JsonValue& devices = object["devices"] = JsonValue(JsonType::Array);
  for (const std::string& device : period.devices) devices.append(device);
  object["from"] = period.from;
  object["to"] = period.to;
  object["active"] = IsActive(period);
  return object;
}

void Print(const std::vector<BlockPeriod>& periods, CommandOutput& output) {
  std::vector<std::vector<std::string>> rows;
  if (!periods.empty()) rows.push_back({"ID", "FROM", "TO", "NOW", "DEVICES"});
  for (const BlockPeriod& period : periods) {
    if (!output.isText()) output.Json(JsonOf(period));
    rows.push_back({std::to_string(period.id), UtcTimeText(period.from), UtcTimeText(period.to),
                    IsActive(period) ? "active" : "-", Joined(period.devices)});
  }
  if (output.isText()) output.Rows(rows);
}

/// Reads the options of `add`; what is wrong with them, or nothing.
std::string ReadNewPeriod(const BlockOptions& options, BlockPeriod& period) {
  std::string fault;
  const std::optional<std::int64_t> from = ParseTime(options.from, fault);
  if (!from) return "--from: \"" + options.from + "\" " + fault;
  const std::optional<std::int64_t> to = ParseTime(options.to, fault);
  if (!to) return "--to: \"" + options.to + "\" " + fault;
  if (*from > *to) return "--to lies before --from";
  period.from = *from;
  period.to = *to;
  const std::set<std::string> devices(options.devices.begin(), options.devices.end());
  period.devices.assign(devices.begin(), devices.end());
  if (devices.contains("")) return "--device: a device has a name";
  return {};
}

std::string RowText(const BlockPeriod& period) {
  JsonValue row(JsonType::Object);
  JsonValue& nodes = row["nodes"] = JsonValue(JsonType::Array);
  for (const std::string& device : period.devices) {
    JsonValue node(JsonType::Object);
    node["deviceName"] = device;
    nodes.append(std::move(node));
  }
  row["blockTimeStart"] = period.from;
  row["blockTimeEnd"] = period.to;
  return row.toString();
}

std::int64_t Insert(CppSQLite3DB& db, const std::string& text) {
  CppSQLite3Statement insert = db.compileStatement("insert into KSBlockSetting (data) values (?)");
  insert.bind(1, std::string_view(text));
  insert.execDML();
  CppSQLite3Statement select = db.compileStatement("select last_insert_rowid()");
  return select.execQuery().getInt64Field(0);
}

/// The periods with these ids; `fault` names the first id that there is none with.
std::vector<BlockPeriod> Choose(CppSQLite3DB& db, const std::set<std::int64_t>& ids,
                                std::string& fault) {
  std::vector<BlockPeriod> chosen;
  CppSQLite3Statement select =
      db.compileStatement("select id, data from KSBlockSetting where id = ?");
  for (const std::int64_t id : ids) {
    select.bind(1, id);
    const CppSQLite3Query row = select.execQuery();
    if (row.eof()) {
      fault = "there is no block period " + std::to_string(id) + "; nothing is removed";
      return {};
    }
    // A row that is none can be removed as well.
    chosen.push_back(ReadPeriod(id, row.getStringField(1)).value_or(BlockPeriod{id, {}, 0, 0}));
    select.reset();
  }
  return chosen;
}

void Remove(CppSQLite3DB& db, const std::vector<BlockPeriod>& periods) {
  CppSQLite3Statement remove = db.compileStatement("delete from KSBlockSetting where id = ?");
  for (const BlockPeriod& period : periods) {
    remove.bind(1, period.id);
    remove.execDML();
    remove.reset();
  }
}

CLI::App& AddCommand(CLI::App& group, const char* name, const char* what, BlockOptions& options) {
  CLI::App& command = *group.add_subcommand(name, what);
  AddCommonOptions(command, options.common);
  AddFormatOption(command, options.format);
  return command;
}

}  // namespace

void AddBlockCommand(CLI::App& program, BlockOptions& options) {
  CLI::App& group =
      *program.add_subcommand("block", "Periods in which nothing is learned of devices");
  group.require_subcommand(1);
  group.footer(kGroupHelpEnd);
  AddCommand(group, "list", "List the periods", options).footer(kListHelpEnd);
  CLI::App& add = AddCommand(group, "add", "Add a period", options);
  add.add_option("--device", options.devices, "Devices")->type_name("NAME…")->required();
  add.add_option("--from", options.from, "Start")->type_name("TIME")->required();
  add.add_option("--to", options.to, "End")->type_name("TIME")->required();
  add.footer(kAddHelpEnd);
  CLI::App& remove = AddCommand(group, "remove", "Remove periods", options);
  remove.add_option("ID", options.ids, "Ids as `block list` shows them")->required();
  remove.add_flag("--dry-run", options.dryRun, "Only say what would be removed");
  remove.footer(kRemoveHelpEnd);
}

int RunBlockList(const BlockOptions& options) {
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kListName, fault, kExitUnusable);
  std::vector<BlockPeriod> periods;
  try {
    CppSQLite3DB db;
    db.open(DomainDatabase(kDbBlockSetting, options.common.domain), CppSQLite3DB::Mode::kReadWrite);
    periods = ReadPeriods(db);
  } catch (const CppSQLite3Exception& error) {
    return Fail(kListName, FaultOf(error), kExitUnusable);
  }
  CommandOutput output(options.format);
  Print(periods, output);
  return output.End(kListName);
}

int RunBlockAdd(const BlockOptions& options) {
  BlockPeriod period;
  std::string fault = ReadNewPeriod(options, period);
  if (fault.empty()) fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kAddName, fault, kExitUnusable);
  try {
    CppSQLite3DB db;
    db.open(DomainDatabase(kDbBlockSetting, options.common.domain), CppSQLite3DB::Mode::kReadWrite);
    db.execDML("begin immediate transaction;");
    period.id = Insert(db, RowText(period));
    db.execDML("commit transaction;");
  } catch (const CppSQLite3Exception& error) {
    return Fail(kAddName, FaultOf(error), kExitBrokenOff);
  }
  CommandOutput output(options.format);
  Print({period}, output);
  return output.End(kAddName);
}

int RunBlockRemove(const BlockOptions& options) {
  std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kRemoveName, fault, kExitUnusable);
  std::vector<BlockPeriod> periods;
  try {
    CppSQLite3DB db;
    db.open(DomainDatabase(kDbBlockSetting, options.common.domain), CppSQLite3DB::Mode::kReadWrite);
    if (!options.dryRun) db.execDML("begin immediate transaction;");
    periods = Choose(db, {options.ids.begin(), options.ids.end()}, fault);
    if (!fault.empty()) return Fail(kRemoveName, fault, kExitUnusable);
    if (!options.dryRun) {
      Remove(db, periods);
      db.execDML("commit transaction;");
    }
  } catch (const CppSQLite3Exception& error) {
    return Fail(kRemoveName, FaultOf(error), kExitBrokenOff);
  }
  CommandOutput output(options.format);
  if (output.isText()) output.Line(options.dryRun ? "would remove:" : "removed:");
  Print(periods, output);
  return output.End(kRemoveName);
}

}  // namespace keelstone::host
