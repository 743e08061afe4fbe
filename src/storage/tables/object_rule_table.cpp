#include "keelstone/object_rule_table.h"

#include <algorithm>
#include <optional>

#include "keelstone/performance.h"
#include "storage/load/unit_changes.h"
#include "storage/tables/object_rule_rows.h"
#include "storage/tables/object_rule_schema.h"
#include "storage/tables/row_batch.h"

// The construction of KSObjectRuleSql and its writers. Its readers stand in
// object_rule_reads.cpp, its removals in object_rule_removals.cpp.
namespace keelstone {

namespace {

using RulePointers = KSObjectRuleSql::RulePointers;
using HistoryPointers = KSObjectRuleSql::HistoryPointers;

constexpr const char* kCreateHistory =
    "create table {0} (deviceName TEXT NOT NULL ,interfaceValue TEXT ,"
    "variableSource TEXT NOT NULL ,param TEXT ,variableName TEXT NOT NULL ,"
    "variableSourceType INTEGER NOT NULL ,HistoryData TEXT,"
    "PRIMARY KEY(deviceName,interfaceValue,variableSource,param,variableName,"
    "variableSourceType))";

void UpsertRules(CppSQLite3DB& db, int rowsATransaction, const RulePointers& rows,
                 std::vector<ObjectRuleHistoryData>& histories) {
  RuleRows stream(rows, histories);
  UpsertRows(db, kRuleTable, RuleRows::kUpdated, rowsATransaction, stream);
}

void UpsertHistories(CppSQLite3DB& db, const std::string& table, int rowsATransaction,
                     const HistoryPointers& rows) {
  HistoryRows stream(rows);
  UpsertRows(db, table, HistoryRows::kUpdated, rowsATransaction, stream);
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

HistoryPointers Joined(const std::vector<ObjectRuleHistoryData>& carried,
                       const HistoryPointers& history) {
  HistoryPointers rows = PointersTo(carried);
  rows.insert(rows.end(), history.begin(), history.end());
  return rows;
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
        UpsertHistories(db, table, RowBatch::kCallers, Joined(carried, history));
      });
  if (outcome == TableOutcome::kNoTable) return false;
  NoteChanges(GetDomainId(), rules);
  NoteChanges(GetDomainId(), history);
  return true;
}

void KSObjectRuleSql::WriteApart(const RulePointers& rules, const HistoryPointers& history) {
  std::vector<ObjectRuleHistoryData> carried;
  WriteRuleRows(rules, &carried);
  const HistoryPointers rows = Joined(carried, history);
  if (!rows.empty()) WriteHistoryRows(rows, RowBatch::kAllRows);
}

}  // namespace keelstone
