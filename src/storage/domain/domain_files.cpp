#include "keelstone/domain_files.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include "base/text/strings.h"
#include "keelstone/database_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/json_reader.h"
#include "keelstone/setting_paths.h"
#include "storage/domain/domain_place.h"
#include "storage/tables/object_rule_schema.h"

namespace keelstone {

namespace {

/// A table that a domain needs from the first run on.
struct DomainTable {
  int dbType;
  const char* name;
  const char* columns;
  const char* used;  // columns that must be there
  bool written;      // by an evaluation
  const char* index = nullptr;
  const char* indexSql = nullptr;
};

constexpr const char* kDataColumns = "(id INTEGER PRIMARY KEY, data TEXT)";
constexpr const char* kUsedOfRules =
    "deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
    "variableDataType, interfacePath, vxNodePathSchema, ruleGenerateType, ruleTypeId, "
    "ruleAlgParameter, isEnable, isDel";
constexpr const char* kUsedOfHistories =
    "deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
    "HistoryData";

constexpr std::array<DomainTable, 5> kTables = {{
    {kDbGlobalSetting, "KSGlobalSetting", kDataColumns, "data", false},
    {kDbVariableRule, "KSVariableRule", kDataColumns, "data", false},
    {kDbBlockSetting, "KSBlockSetting", kDataColumns, "data", false},
    {kDbObjectRule, "KSObjectRule",
     "(deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource TEXT NOT NULL ,param TEXT "
     ",variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL ,variableDataType INTEGER "
     "NOT NULL ,interfacePath TEXT ,vxNodePathSchema TEXT NOT NULL ,ruleGenerateType INTEGER NOT "
     "NULL ,ruleTypeId INTEGER NOT NULL ,ruleAlgParameter TEXT ,isEnable INTEGER NOT NULL ,isDel "
     "INTEGER NOT NULL,PRIMARY KEY(deviceName,interfaceValue,variableSource,param,variableName,"
     "variableSourceType))",
     kUsedOfRules, true, kRuleIndex, kIndexRules},
    {kDbObjectHistory, "KSObjectHistory",
     "(deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource TEXT NOT NULL ,param TEXT "
     ",variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL ,HistoryData TEXT,PRIMARY "
     "KEY(deviceName,interfaceValue,variableSource,param,variableName,variableSourceType))",
     kUsedOfHistories, true, kHistoryIndex, kIndexHistories},
}};

FSResFileSystem DomainFileSystem() {
  return FSResFileSystem(VXFileSystem::GetSystemRootFolder() + "data" + DomainsSubPath());
}

std::string FileOf(const DomainTable& table, const std::string& domainId) {
  return DomainDatabase(table.dbType, domainId);
}

std::string Because(const std::string& what, int error) {
  return what + ": " + std::strerror(error);
}

JsonValue Setting(const char* name, JsonValue value) {
  JsonValue row(JsonType::Object);
  row["name"] = name;
  row["value"] = std::move(value);
  return row;
}

std::vector<JsonValue> DefaultSettingRows(const JsonValue& generalSettings) {
  JsonValue filter(JsonType::Object);
  filter["value"] = JsonValue(JsonType::Array);
  return {
      Setting(kGeneralSettingRow, generalSettings), Setting("KSInterfaceFilter", std::move(filter)),
      Setting("KSTableCountLimit", 5000),           Setting("KSStrRowCountLimit", 100),
      Setting("KSDynamicRuleStatus", "true"),       Setting("EnableKSFunction", "true")};
}

/// Calls `visit` with every row of the table "KSGlobalSetting" that is a JSON object.
template <class Visit>
void ForEachSetting(CppSQLite3DB& db, Visit visit) {
  CppSQLite3Statement select = db.compileStatement("select data from KSGlobalSetting");
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    JsonValue row;
    if (JsonReader::Parse(rows.getStringField(0), row) && row.isObject()) visit(row);
  }
}

std::string NameOf(const JsonValue& row) {
  const JsonValue& name = row["name"];
  return name.isString() ? name.stringRef() : std::string();
}

/// Adds the settings whose names are not there; whether any was.
bool AddMissingSettings(CppSQLite3DB& db, const JsonValue& generalSettings) {
  std::set<std::string> present;
  ForEachSetting(db, [&](const JsonValue& row) { present.insert(NameOf(row)); });
  CppSQLite3Statement insert = db.compileStatement("insert into KSGlobalSetting (data) values (?)");
  bool added = false;
  for (const JsonValue& row : DefaultSettingRows(generalSettings)) {
    if (present.contains(NameOf(row))) continue;
    insert.bind(1, std::string_view(row.toString()));
    insert.execDML();
    insert.reset();
    added = true;
  }
  return added;
}

/// Adds the index of a table that is there; whether it was missing.
bool AddMissingIndex(CppSQLite3DB& db, const DomainTable& table) {
  if (table.index == nullptr) return false;
  CppSQLite3Statement find = db.compileStatement("select 1 from sqlite_master where name = ?");
  find.bind(1, table.index);
  if (!find.execQuery().eof()) return false;
  find.reset();
  db.execDML(FormatPositional(table.indexSql, {"main"}));
  return true;
}

/// Whether anything was added.
bool MakeTable(CppSQLite3DB& db, const DomainTable& table, const JsonValue& generalSettings) {
  bool changed = false;
  if (!db.tableExists(table.name)) {
    db.execDML(std::string("create table ") + table.name + " " + table.columns);
    changed = true;
  }
  changed |= AddMissingIndex(db, table);
  if (table.dbType == kDbGlobalSetting) changed |= AddMissingSettings(db, generalSettings);
  return changed;
}

TableOutcome RunOn(const DomainTable& table, const std::string& domainId, const char* function,
                   TableAccess access, const TableFrame::Body& body, TableFault& fault) {
  const TableOperation operation{.table = table.name,
                                 .dbType = table.dbType,
                                 .function = function,
                                 .source = "domain_files",
                                 .access = access};
  return TableFrame::RunAt(domainId, FileOf(table, domainId), operation, body, &fault);
}

/// What keeps a file from being used; empty where nothing does. Names in `missing` what is
/// not there, unless something is named already.
std::string FileFault(const DomainTable& table, const std::string& domainId,
                      const std::string& file, std::string& missing) {
  // Compiling names a column that is missing.
  const auto compile = [&](CppSQLite3DB& db) {
    db.compileStatement(std::string("select ") + table.used + " from " + table.name);
  };
  TableFault fault;
  switch (RunOn(table, domainId, "CheckDomain", TableAccess::kAsk, compile, fault)) {
    case TableOutcome::kRan:
      return {};
    case TableOutcome::kNoFile:
      if (missing.empty()) missing = "there is no " + file;
      return {};
    case TableOutcome::kNoTable:
      if (missing.empty()) missing = file + " has no table " + table.name;
      return {};
    default:
      fault.file = file;
      return fault.Text();
  }
}

}  // namespace

std::string DomainFolder(const std::string& domainId) {
  return DomainFileSystem().GetDomainFolder(domainId);
}

std::string DomainDatabase(int dbType, const std::string& domainId) {
  return DomainFileSystem().GetDBFile(dbType, domainId);
}

DomainCheck CheckDomain(const std::string& domainId, bool forWriting) {
  using Condition = DomainCheck::Condition;
  std::string missing;
  bool any = false;
  for (const DomainTable& table : kTables) {
    const std::string file = FileOf(table, domainId);
    std::error_code failure;
    const auto status = std::filesystem::status(file, failure);
    // A name that no file can have is one that is not there.
    if (status.type() == std::filesystem::file_type::not_found ||
        failure == std::errc::filename_too_long) {
      missing = missing.empty() ? "there is no " + file : missing;
      continue;
    }
    any = true;
    if (failure) return {Condition::kUnusable, file + ": " + failure.message()};
    const bool writes = forWriting && table.written;
    if (::access(file.c_str(), writes ? R_OK | W_OK : R_OK) != 0) {
      return {Condition::kUnusable, Because(file, errno)};
    }
    std::string fault = FileFault(table, domainId, file, missing);
    if (!fault.empty()) return {Condition::kUnusable, std::move(fault)};
  }
  if (!any) return {Condition::kAbsent, "there is no " + DomainFolder(domainId)};
  return missing.empty() ? DomainCheck{Condition::kComplete, ""}
                         : DomainCheck{Condition::kIncomplete, missing};
}

std::string MakeDomain(const std::string& domainId, const JsonValue& generalSettings,
                       std::vector<DomainFileReport>* reports) {
  if (!MakeParentFolders(FileOf(kTables[0], domainId))) {
    return Because(DomainFolder(domainId), errno);
  }
  for (const DomainTable& table : kTables) {
    const std::string file = FileOf(table, domainId);
    bool changed = false;
    TableFault fault;
    // Two programs that make the same domain come one after the other.
    const auto make = [&](CppSQLite3DB& db) {
      changed = InTransaction(db, [&] { return MakeTable(db, table, generalSettings); });
    };
    if (RunOn(table, domainId, "MakeDomain", TableAccess::kMake, make, fault) !=
        TableOutcome::kRan) {
      fault.file = file;
      return fault.Text();
    }
    if (reports != nullptr) reports->push_back({file, changed});
  }
  return {};
}

std::string StoredSettings(const std::string& domainId, std::map<std::string, JsonValue>& rows) {
  rows.clear();
  TableFault fault;
  const auto read = [&](CppSQLite3DB& db) {
    ForEachSetting(db, [&](const JsonValue& row) {
      if (row["name"].isString()) rows[row["name"].stringRef()] = row["value"];
    });
  };
  const TableOutcome outcome =
      RunOn(kTables[0], domainId, "StoredSettings", TableAccess::kRead, read, fault);
  return IsFailure(outcome) ? fault.Text() : std::string();
}

JsonValue DefaultSetting(const std::string& name) {
  for (const JsonValue& row : DefaultSettingRows({})) {
    if (NameOf(row) == name) return row["value"];
  }
  return {};
}

}  // namespace keelstone
