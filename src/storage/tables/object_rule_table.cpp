#include "keelstone/object_rule_table.h"

#include <algorithm>
#include <array>
#include <optional>

#include "base/text/strings.h"
#include "keelstone/performance.h"
#include "storage/load/unit_changes.h"
#include "storage/tables/object_rule_schema.h"
#include "storage/tables/row_batch.h"

// The construction of KSObjectRuleSql and its writers. Its readers stand in
// object_rule_reads.cpp, its removals in object_rule_removals.cpp.
namespace keelstone {

namespace {

using RulePointers = KSObjectRuleSql::RulePointers;
using HistoryPointers = KSObjectRuleSql::HistoryPointers;

constexpr const char* kUpsertRule =
    "insert or replace into {0} (deviceName, interfaceValue, variableSource, param, variableName, "
    "variableSourceType, variableDataType, interfacePath, vxNodePathSchema, ruleGenerateType, "
    "ruleTypeId, ruleAlgParameter, isEnable, isDel) values(?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr const char* kUpsertHistory =
    "insert or replace into {0} (deviceName, interfaceValue, variableSource, param, variableName, "
    "variableSourceType, HistoryData) values(?,?,?,?,?,?,?)";
constexpr const char* kCreateHistory =
    "create table {0} (deviceName TEXT NOT NULL ,interfaceValue TEXT ,"
    "variableSource TEXT NOT NULL ,param TEXT ,variableName TEXT NOT NULL ,"
    "variableSourceType INTEGER NOT NULL ,HistoryData TEXT,"
    "PRIMARY KEY(deviceName,interfaceValue,variableSource,param,variableName,"
    "variableSourceType))";

// What a row takes of a definition, copied under the definition's lock so that SQLite
// never runs under it. One is used for all rows: its texts keep their memory.
struct DefinitionColumns {
  std::int32_t variableType = 0;
  std::int32_t ruleGenerateType = 0;
  std::int32_t ruleType = 0;
  std::string ruleParam;
  std::string history;

  void Take(const RuleDefinitionData& definition) {
    const DefinitionLock lock(definition);
    variableType = definition.variableType;
    ruleGenerateType = definition.ruleGenerateType;
    ruleType = definition.ruleType;
    ruleParam = definition.ruleParam;
    history = definition.history;
  }
};

// Binds the values of one row after the other. What stays the same from row to row, most of
// a key's texts, stays bound: comparing is cheaper than binding. The rows must live as long
// as the statement runs.
template <std::size_t kParameters>
class RowBinder {
 public:
  explicit RowBinder(CppSQLite3Statement& statement) : statement_(statement) {}

  void Bind(int parameter, const std::string& text) {
    const std::string*& bound = texts_[static_cast<std::size_t>(parameter)];
    if (bound != nullptr && *bound == text) return;
    statement_.bindStatic(parameter, text);
    bound = &text;
  }
  void Bind(int parameter, std::int32_t number) {
    std::optional<std::int32_t>& bound = numbers_[static_cast<std::size_t>(parameter)];
    if (bound == number) return;
    statement_.bind(parameter, number);
    bound = number;
  }
  /// For a text that changes where it lies.
  void BindAnew(int parameter, const std::string& text) { statement_.bindStatic(parameter, text); }

 private:
  CppSQLite3Statement& statement_;
  std::array<const std::string*, kParameters + 1> texts_{};
  std::array<std::optional<std::int32_t>, kParameters + 1> numbers_{};
};

template <class Binder, class Row>
void BindKey(Binder& binder, const Row& row, const std::string& variableName) {
  binder.Bind(1, row.object.deviceName);
  binder.Bind(2, row.object.interfaceValue);
  binder.Bind(3, row.variableSource);
  binder.Bind(4, row.variableParam);
  binder.Bind(5, variableName);
  binder.Bind(6, row.variableSourceType);
}

void BindRule(RowBinder<14>& binder, const ObjectRuleData& row, const std::string& variableName,
              const DefinitionColumns& definition) {
  BindKey(binder, row, variableName);
  binder.Bind(7, definition.variableType);
  binder.Bind(8, row.object.interfacePath);
  binder.Bind(9, row.object.nodePathSchema);
  binder.Bind(10, definition.ruleGenerateType);
  binder.Bind(11, definition.ruleType);
  binder.BindAnew(12, definition.ruleParam);
  binder.Bind(13, 0);
  binder.Bind(14, 0);
}

void UpsertRules(CppSQLite3DB& db, int rowsATransaction, const RulePointers& rows,
                 std::vector<ObjectRuleHistoryData>& histories) {
  auto statement = db.compileStatement(FormatPositional(kUpsertRule, {kRuleTable}));
  RowBinder<14> binder(statement);
  RowBatch batch(db, rowsATransaction);
  DefinitionColumns columns;
  for (const ObjectRuleData* row : rows) {
    for (const auto& [variableName, definition] : row->definitions) {
      if (definition == nullptr) continue;
      columns.Take(*definition);
      batch.BeforeRow();
      BindRule(binder, *row, variableName, columns);
      statement.execDML();
      if (!columns.history.empty()) {
        histories.push_back({columns.history, row->object, row->variableSource, variableName,
                             row->variableParam, row->variableSourceType});
      }
      batch.AfterRow();
    }
  }
  batch.Finish();
}

void UpsertHistories(CppSQLite3DB& db, const char* table, int rowsATransaction,
                     const HistoryPointers& rows) {
  auto statement = db.compileStatement(FormatPositional(kUpsertHistory, {table}));
  RowBinder<7> binder(statement);
  RowBatch batch(db, rowsATransaction);
  for (const ObjectRuleHistoryData* row : rows) {
    batch.BeforeRow();
    BindKey(binder, *row, row->variableName);
    binder.BindAnew(7, row->history);
    statement.execDML();
    batch.AfterRow();
  }
  batch.Finish();
}

TableOperation HistoryWrite() {
  TableOperation operation =
      HistoryOperation("KSObjectRuleSql::SetRuleHistoryData", TableAccess::kCreate);
  operation.createSql = kCreateHistory;
  return operation;
}

TableOperation RuleWrite() {
  return RuleOperation("KSObjectRuleSql::SetRuleAlgParam", TableAccess::kCreate);
}

// Tells of the devices whose rows were written, whether or not all of them came through.
template <class Row>
void NoteChanges(const std::string& domainId, const std::vector<const Row*>& rows) {
  const std::string* last = nullptr;
  for (const Row* row : rows) {
    if (last != nullptr && *last == row->object.deviceName) continue;
    last = &row->object.deviceName;
    NoteUnitChange(domainId, *last);
  }
}

bool HasDefinitions(const RulePointers& rows) {
  return std::any_of(rows.begin(), rows.end(), [](const ObjectRuleData* row) {
    return std::any_of(row->definitions.begin(), row->definitions.end(),
                       [](const auto& entry) { return entry.second != nullptr; });
  });
}

template <class Row>
std::vector<const Row*> PointersTo(const std::vector<Row>& rows) {
  std::vector<const Row*> pointers;
  pointers.reserve(rows.size());
  for (const Row& row : rows) pointers.push_back(&row);
  return pointers;
}

}  // namespace

KSObjectRuleSql::KSObjectRuleSql() : KSObjectRuleSql("/") {}

KSObjectRuleSql::KSObjectRuleSql(const std::string& subPath) : CKSDBOperateBase(subPath) {}

KSObjectRuleSql::~KSObjectRuleSql() = default;

bool KSObjectRuleSql::InitDB(const std::string& domainId) {
  SetDomainId(domainId);
  return true;
}

int KSObjectRuleSql::SetRuleAlgParam(const std::vector<ObjectRuleData>& rows) {
  return WriteRuleRows(PointersTo(rows));
}

int KSObjectRuleSql::SetRuleAlgParam(const RuleDefinitionMap& definitions,
                                     const ObjectDefine* object, const std::string& variableSource,
                                     const std::string& param, Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  std::vector<ObjectRuleData> rows{{definitions, *object, variableSource, param, type}};
  return SetRuleAlgParam(rows);
}

int KSObjectRuleSql::SetRuleHistoryData(const std::vector<ObjectRuleHistoryData>& rows) {
  return WriteHistoryRows(PointersTo(rows), RowBatch::kRows);
}

int KSObjectRuleSql::SetRuleHistoryData(const std::string& historyData, const ObjectDefine* object,
                                        const std::string& variableSource,
                                        const std::string& variableName, const std::string& param,
                                        Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  std::vector<ObjectRuleHistoryData> rows{
      {historyData, *object, variableSource, variableName, param, type}};
  return SetRuleHistoryData(rows);
}

int KSObjectRuleSql::WriteRuleRows(const RulePointers& rows,
                                   std::vector<ObjectRuleHistoryData>* histories) {
  std::vector<ObjectRuleHistoryData> own;
  std::vector<ObjectRuleHistoryData>& carried = histories != nullptr ? *histories : own;
  const TableOutcome outcome = TableFrame::Run(*this, RuleWrite(), [&](CppSQLite3DB& db) {
    UpsertRules(db, RowBatch::kRows, rows, carried);
  });
  NoteChanges(GetDomainId(), rows);
  if (outcome == TableOutcome::kNoTable) {
    if (HasDefinitions(rows)) CountFailedWrite();
  } else if (histories == nullptr) {
    SetRuleHistoryData(own);
  }
  return StatusOf(outcome);
}

int KSObjectRuleSql::WriteHistoryRows(const HistoryPointers& rows, int rowsATransaction) {
  const FSPerformance whole("KSObjectRuleSql", "SetRuleHistoryData");
  std::optional<FSPerformance> inner;  // made inside the frame, logged after its lock is free
  const TableOutcome outcome = TableFrame::Run(*this, HistoryWrite(), [&](CppSQLite3DB& db) {
    inner.emplace("KSObjectRuleSql", "SetRuleHistoryData--inner");
    UpsertHistories(db, kHistoryTable, rowsATransaction, rows);
  });
  NoteChanges(GetDomainId(), rows);
  return StatusOf(outcome);
}

void KSObjectRuleSql::WriteFlush(const RulePointers& rules, const HistoryPointers& history) {
  if (rules.empty()) {
    if (!history.empty()) WriteHistoryRows(history, RowBatch::kAllRows);
  } else if (!WriteTogether(rules, history)) {
    WriteApart(rules, history);
  }
}

bool KSObjectRuleSql::WriteTogether(const RulePointers& rules, const HistoryPointers& history) {
  const FSPerformance whole("KSObjectRuleSql", "SetRuleHistoryData");
  std::optional<FSPerformance> inner;  // made inside the frame, logged after its locks are free
  const TableOutcome outcome =
      TableFrame::RunTogether(*this, RuleWrite(), HistoryWrite(), [&](CppSQLite3DB& db) {
        static const std::string table = std::string(TableFrame::kSecond) + '.' + kHistoryTable;
        std::vector<ObjectRuleHistoryData> carried;
        UpsertRules(db, RowBatch::kCallers, rules, carried);
        inner.emplace("KSObjectRuleSql", "SetRuleHistoryData--inner");
        UpsertHistories(db, table.c_str(), RowBatch::kCallers, PointersTo(carried));
        UpsertHistories(db, table.c_str(), RowBatch::kCallers, history);
      });
  if (outcome == TableOutcome::kNoTable) return false;
  NoteChanges(GetDomainId(), rules);
  NoteChanges(GetDomainId(), history);
  return true;
}

void KSObjectRuleSql::WriteApart(const RulePointers& rules, const HistoryPointers& history) {
  std::vector<ObjectRuleHistoryData> carried;
  WriteRuleRows(rules, &carried);
  HistoryPointers rows = PointersTo(carried);
  rows.insert(rows.end(), history.begin(), history.end());
  if (!rows.empty()) WriteHistoryRows(rows, RowBatch::kAllRows);
}

}  // namespace keelstone
