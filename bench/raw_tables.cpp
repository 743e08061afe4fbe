#include "bench/raw_tables.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>

namespace keelstone::bench {

namespace {

constexpr int kRowsPerTransaction = 600;

constexpr const char* kCreateRules =
    "create table KSObjectRule (deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource TEXT "
    "NOT NULL ,param TEXT ,variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL "
    ",variableDataType INTEGER NOT NULL ,interfacePath TEXT ,vxNodePathSchema TEXT NOT NULL "
    ",ruleGenerateType INTEGER NOT NULL ,ruleTypeId INTEGER NOT NULL ,ruleAlgParameter TEXT "
    ",isEnable INTEGER NOT NULL ,isDel INTEGER NOT NULL,PRIMARY KEY(deviceName,interfaceValue,"
    "variableSource,param,variableName,variableSourceType))";
constexpr const char* kCreateHistory =
    "create table KSObjectHistory (deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource "
    "TEXT NOT NULL ,param TEXT ,variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL "
    ",HistoryData TEXT,PRIMARY KEY(deviceName,interfaceValue,variableSource,param,variableName,"
    "variableSourceType))";
constexpr const char* kUpsertRule =
    "insert into KSObjectRule (deviceName, interfaceValue, variableSource, param, "
    "variableName, variableSourceType, variableDataType, interfacePath, vxNodePathSchema, "
    "ruleGenerateType, ruleTypeId, ruleAlgParameter, isEnable, isDel) "
    "values(?,?,?,?,?,?,?,?,?,?,?,?,?,?) on conflict do update set "
    "variableDataType=excluded.variableDataType,interfacePath=excluded.interfacePath,"
    "vxNodePathSchema=excluded.vxNodePathSchema,ruleGenerateType=excluded.ruleGenerateType,"
    "ruleTypeId=excluded.ruleTypeId,ruleAlgParameter=excluded.ruleAlgParameter,"
    "isEnable=excluded.isEnable,isDel=excluded.isDel";
constexpr const char* kUpsertHistory =
    "insert into KSObjectHistory (deviceName, interfaceValue, variableSource, param, "
    "variableName, variableSourceType, HistoryData) values(?,?,?,?,?,?,?) on conflict do update "
    "set HistoryData=excluded.HistoryData";
constexpr const char* kSelectRules =
    "select variableDataType,interfacePath,vxNodePathSchema,ruleGenerateType,ruleTypeId,"
    "ruleAlgParameter,isEnable,isDel,variableName,interfaceValue,deviceName,variableSource,param "
    "from KSObjectRule where (deviceName = ? and variableSource = ? and param = ? and "
    "variableSourceType = ?)";
constexpr const char* kSelectHistory =
    "select HistoryData,variableName,interfaceValue from KSObjectHistory where  deviceName = ? and "
    "variableSource = ? and param = ? and variableSourceType = ?";

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Connection = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

void Require(bool sound, sqlite3* db) {
  if (!sound) throw std::runtime_error(sqlite3_errmsg(db));
}

Connection Open(const std::string& file) {
  sqlite3* db = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  const int code = sqlite3_open_v2(file.c_str(), &db, flags, nullptr);
  Connection connection(db);
  Require(code == SQLITE_OK, db);
  return connection;
}

void Execute(const Connection& db, const char* sql) {
  Require(sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK, db.get());
}

Statement Prepare(const Connection& db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  Require(sqlite3_prepare_v2(db.get(), sql, -1, &statement, nullptr) == SQLITE_OK, db.get());
  return Statement(statement);
}

void BindText(sqlite3_stmt* statement, int place, const std::string& text) {
  sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

template <class Row>
void BindKey(sqlite3_stmt* statement, const Row& row, const std::string& variableName) {
  BindText(statement, 1, row.object.deviceName);
  BindText(statement, 2, row.object.interfaceValue);
  BindText(statement, 3, row.variableSource);
  BindText(statement, 4, row.variableParam);
  BindText(statement, 5, variableName);
  sqlite3_bind_int(statement, 6, row.variableSourceType);
}

void BindRow(sqlite3_stmt* statement, const ObjectRuleData& row) {
  const auto& [variableName, definition] = *row.definitions.begin();
  BindKey(statement, row, variableName);
  sqlite3_bind_int(statement, 7, definition->variableType);
  BindText(statement, 8, row.object.interfacePath);
  BindText(statement, 9, row.object.nodePathSchema);
  sqlite3_bind_int(statement, 10, definition->ruleGenerateType);
  sqlite3_bind_int(statement, 11, definition->ruleType);
  BindText(statement, 12, definition->ruleParam);
  sqlite3_bind_int(statement, 13, 0);
  sqlite3_bind_int(statement, 14, 0);
}

void BindRow(sqlite3_stmt* statement, const ObjectRuleHistoryData& row) {
  BindKey(statement, row, row.variableName);
  BindText(statement, 7, row.history);
}

template <class Row>
void WriteRows(const std::string& file, const char* sql, const std::vector<Row>& rows) {
  const Connection db = Open(file);
  const Statement statement = Prepare(db, sql);
  int open = 0;
  for (const Row& row : rows) {
    if (open == 0) Execute(db, "begin transaction;");
    BindRow(statement.get(), row);
    Require(sqlite3_step(statement.get()) == SQLITE_DONE, db.get());
    sqlite3_reset(statement.get());
    if (++open < kRowsPerTransaction) continue;
    Execute(db, "commit transaction;");
    open = 0;
  }
  if (open > 0) Execute(db, "commit transaction;");
}

/// Reads every column of every row; the number of rows.
std::size_t ReadRows(const Statement& statement, const UnitKey& key,
                     std::vector<std::string>& texts) {
  BindText(statement.get(), 1, key.deviceName);
  BindText(statement.get(), 2, key.variableSource);
  BindText(statement.get(), 3, key.variableParam);
  sqlite3_bind_int(statement.get(), 4, kVariableSourceParser);
  const int columns = sqlite3_column_count(statement.get());
  std::size_t rows = 0;
  while (sqlite3_step(statement.get()) == SQLITE_ROW) {
    ++rows;
    for (int column = 0; column < columns; ++column) {
      if (sqlite3_column_type(statement.get(), column) != SQLITE_TEXT) {
        sqlite3_column_int(statement.get(), column);
        continue;
      }
      const auto* const bytes = sqlite3_column_text(statement.get(), column);
      texts.emplace_back(reinterpret_cast<const char*>(bytes),
                         static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column)));
    }
  }
  sqlite3_reset(statement.get());
  return rows;
}

std::string RuleFile(const std::filesystem::path& folder) {
  return (folder / "KSObjectRule.db").string();
}

std::string HistoryFile(const std::filesystem::path& folder) {
  return (folder / "KSObjectHistory.db").string();
}

}  // namespace

RawTables::RawTables(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
}

void RawTables::CreateTables() const {
  std::filesystem::remove(RuleFile(folder_));
  std::filesystem::remove(HistoryFile(folder_));
  Execute(Open(RuleFile(folder_)), kCreateRules);
  Execute(Open(HistoryFile(folder_)), kCreateHistory);
}

void RawTables::CreateSettings(const std::string& generalSettings) const {
  const Connection db = Open((folder_ / "KSGlobalSetting.db").string());
  Execute(db, "create table KSGlobalSetting (id INTEGER PRIMARY KEY, data TEXT)");
  const Statement statement = Prepare(db, "insert into KSGlobalSetting (data) values (?)");
  const std::string row = R"({"name":"KSGeneralSetting","value":)" + generalSettings + "}";
  BindText(statement.get(), 1, row);
  Require(sqlite3_step(statement.get()) == SQLITE_DONE, db.get());
}

void RawTables::Write(const std::vector<ObjectRuleData>& rules,
                      const std::vector<ObjectRuleHistoryData>& history) const {
  WriteRows(RuleFile(folder_), kUpsertRule, rules);
  WriteRows(HistoryFile(folder_), kUpsertHistory, history);
}

struct RawReader::Tables {
  explicit Tables(const std::filesystem::path& folder)
      : rules(Open(RuleFile(folder))),
        histories(Open(HistoryFile(folder))),
        selectRules(Prepare(rules, kSelectRules)),
        selectHistories(Prepare(histories, kSelectHistory)) {}

  Connection rules;
  Connection histories;
  Statement selectRules;
  Statement selectHistories;
};

RawReader::RawReader(const std::filesystem::path& folder)
    : tables_(std::make_unique<const Tables>(folder)) {}
RawReader::~RawReader() = default;

RawReader::Rows RawReader::Read(const UnitKey& key) const {
  Rows rows;
  rows.rules = ReadRows(tables_->selectRules, key, rows.texts);
  rows.histories = ReadRows(tables_->selectHistories, key, rows.texts);
  return rows;
}

}  // namespace keelstone::bench
