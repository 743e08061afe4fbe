#include <sqlite3.h>

#include <array>
#include <set>
#include <string_view>

#include "base/text/strings.h"
#include "keelstone/object_rule_table.h"
#include "storage/tables/object_rule_schema.h"
#include "storage/tables/row_batch.h"

namespace keelstone {

namespace {

constexpr const char* kDeleteVariable =
    "delete from {0} where deviceName = ? and interfaceValue = ? and variableSource = ? and "
    "param = ? and variableName = ? and variableSourceType = ?";
constexpr const char* kDeleteObject =
    "delete from {0} where deviceName = ? and interfaceValue = ? and variableSource = ? and "
    "param = ? and variableSourceType = ?";
// The list stands as text, so its sources must not hold what could end one.
constexpr const char* kDeleteSources =
    "delete from {0} where variableSource IN ({1}) and  variableSourceType= ?";
constexpr const char* kVacuum = "VACUUM;";

constexpr std::array<std::string_view, 14> kRuleColumns = {"deviceName",       "interfaceValue",
                                                           "variableSource",   "param",
                                                           "variableName",     "variableSourceType",
                                                           "variableDataType", "interfacePath",
                                                           "vxNodePathSchema", "ruleGenerateType",
                                                           "ruleTypeId",       "ruleAlgParameter",
                                                           "isEnable",         "isDel"};
constexpr std::array<std::string_view, 7> kHistoryColumns = {
    "deviceName",   "interfaceValue",     "variableSource", "param",
    "variableName", "variableSourceType", "HistoryData"};
constexpr std::array<std::string_view, 3> kRowIds = {"rowid", "oid", "_rowid_"};

bool EqualIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ContainsIgnoreCase(a, b);
}

template <class Names>
bool ContainsName(const Names& names, std::string_view name) {
  for (const std::string_view candidate : names) {
    if (EqualIgnoreCase(candidate, name)) return true;
  }
  return false;
}

// SQLite reads a text in double quotes as a column where there is one of that name, and
// would compare every row with itself; a quote or a NUL would end the text early.
template <class Columns>
void RequireHarmless(const std::vector<std::string>& sources, const Columns& columns) {
  for (const std::string& source : sources) {
    if (source.find('"') != std::string::npos || source.find('\0') != std::string::npos ||
        ContainsName(columns, source) || ContainsName(kRowIds, source)) {
      throw CppSQLite3Exception(SQLITE_ERROR,
                                "delete by source: \"" + source + "\" cannot stand in the list");
    }
  }
}

std::string QuotedList(const std::vector<std::string>& sources) {
  std::string list;
  for (const std::string& source : sources) list.append("\"").append(source).append("\",");
  return std::string(Trim(list, ","));
}

template <class Columns>
void DeleteSources(CppSQLite3DB& db, const char* table, const std::vector<std::string>& sources,
                   const Columns& columns, Enum_VariableSourceType type) {
  RequireHarmless(sources, columns);
  {
    auto statement =
        db.compileStatement(FormatPositional(kDeleteSources, {table, QuotedList(sources)}));
    statement.bind(1, static_cast<int>(type));
    statement.execDML();
  }
  db.execDML(kVacuum);
}

void DeleteObject(CppSQLite3DB& db, const char* table, const ObjectDefine& object,
                  const std::string& variableSource, const std::string& param,
                  Enum_VariableSourceType type) {
  {
    auto statement = db.compileStatement(FormatPositional(kDeleteObject, {table}));
    statement.bindStatic(1, object.deviceName);
    statement.bindStatic(2, object.interfaceValue);
    statement.bindStatic(3, variableSource);
    statement.bindStatic(4, param);
    statement.bind(5, static_cast<int>(type));
    statement.execDML();
  }
  db.execDML(kVacuum);
}

void ExecuteDeleteVariable(CppSQLite3Statement& statement, const ObjectDefine& object,
                           const std::string& variableSource, const std::string& param,
                           const std::string& variableName, int type) {
  statement.bindStatic(1, object.deviceName);
  statement.bindStatic(2, object.interfaceValue);
  statement.bindStatic(3, variableSource);
  statement.bindStatic(4, param);
  statement.bindStatic(5, variableName);
  statement.bind(6, type);
  statement.execDML();
  statement.reset();
}

// What identifies the row of a definition, copied under its lock.
struct DefinitionKey {
  explicit DefinitionKey(const RuleDefinitionData& definition) {
    const DefinitionLock lock(definition);
    source = definition.variableSource;
    param = definition.variableParam;
    name = definition.variableName;
    type = definition.variableSourceType;
  }
  std::string source;
  std::string param;
  std::string name;
  int type = 0;
};

}  // namespace

int KSObjectRuleSql::RemoveRuleDefinitionData(const ObjectDefine* object,
                                              const std::string& variableSource,
                                              const std::string& variableName,
                                              const std::string& param,
                                              Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  const int status = StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::RemoveRuleDefinitionData", TableAccess::kChange),
      [&](CppSQLite3DB& db) {
        {
          auto statement = db.compileStatement(FormatPositional(kDeleteVariable, {kRuleTable}));
          ExecuteDeleteVariable(statement, *object, variableSource, param, variableName, type);
        }
        db.execDML(kVacuum);
      }));
  if (status < 0) RemoveRuleHistoryData(object, variableSource, variableName, param, type);
  return status;
}

int KSObjectRuleSql::RemoveRuleHistoryData(const ObjectDefine* object,
                                           const std::string& variableSource,
                                           const std::string& variableName,
                                           const std::string& param, Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  auto definition = std::make_shared<RuleDefinitionData>();
  definition->variableSource = variableSource;
  definition->variableName = variableName;
  definition->variableParam = param;
  definition->variableSourceType = type;
  std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>> items;
  items.emplace_back(std::make_shared<ObjectDefine>(*object), std::move(definition));
  return RemoveRuleHistoryDatas(items);
}

int KSObjectRuleSql::RemoveRuleHistoryDatas(
    std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>>&
        items) {
  return StatusOf(TableFrame::Run(
      *this, HistoryOperation("KSObjectRuleSql::RemoveRuleHistoryDatas", TableAccess::kChange),
      [&](CppSQLite3DB& db) {
        {
          auto statement = db.compileStatement(FormatPositional(kDeleteVariable, {kHistoryTable}));
          RowBatch batch(db);
          for (const auto& [object, definition] : items) {
            if (object == nullptr || definition == nullptr) continue;
            const DefinitionKey key(*definition);
            batch.BeforeRow();
            ExecuteDeleteVariable(statement, *object, key.source, key.param, key.name, key.type);
            batch.AfterRow();
          }
          batch.Finish();
        }
        db.execDML(kVacuum);
      }));
}

int KSObjectRuleSql::RemoveRuleDefinitionDataNoVar(const ObjectDefine* object,
                                                   const std::string& variableSource,
                                                   const std::string& param,
                                                   Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  const int status = RemoveRuleDefinitionNoVar(object, variableSource, param, type);
  if (status < 0) RemoveRuleHistoryDataNoVar(object, variableSource, param, type);
  return status;
}

int KSObjectRuleSql::RemoveRuleDefinitionNoVar(const ObjectDefine* object,
                                               const std::string& variableSource,
                                               const std::string& param,
                                               Enum_VariableSourceType type) {
  return StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::RemoveRuleDefinitionNoVar", TableAccess::kChange),
      [&](CppSQLite3DB& db) {
        DeleteObject(db, kRuleTable, *object, variableSource, param, type);
      }));
}

int KSObjectRuleSql::RemoveRuleHistoryDataNoVar(const ObjectDefine* object,
                                                const std::string& variableSource,
                                                const std::string& param,
                                                Enum_VariableSourceType type) {
  return StatusOf(TableFrame::Run(
      *this, HistoryOperation("KSObjectRuleSql::RemoveRuleHistoryDataNoVar", TableAccess::kChange),
      [&](CppSQLite3DB& db) {
        DeleteObject(db, kHistoryTable, *object, variableSource, param, type);
      }));
}

int KSObjectRuleSql::RemoveRuleDefinitionNoExistSource(const std::vector<std::string>& sources,
                                                       Enum_VariableSourceType type) {
  if (sources.empty()) return -1;
  std::vector<std::string> present;
  if (GetAllSource(present, type) < 1) return -1;
  const std::set<std::string> kept(sources.begin(), sources.end());
  std::vector<std::string> gone;
  for (std::string& source : present) {
    if (kept.count(source) == 0) gone.push_back(std::move(source));
  }
  const int status = RemoveRuleDefinitionBySource(gone, type);
  return status < 0 ? RemoveRuleHistoryBySource(gone, type) : status;
}

int KSObjectRuleSql::RemoveRuleDefinitionNoExistDevice(const std::vector<std::string>& /*devices*/,
                                                       Enum_VariableSourceType /*type*/) {
  return -1;
}

int KSObjectRuleSql::RemoveRuleDefinitionBySource(const std::vector<std::string>& sources,
                                                  Enum_VariableSourceType type) {
  if (sources.empty()) return -1;
  return StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::RemoveRuleDefinitionBySource", TableAccess::kChange),
      [&](CppSQLite3DB& db) { DeleteSources(db, kRuleTable, sources, kRuleColumns, type); }));
}

int KSObjectRuleSql::RemoveRuleHistoryBySource(const std::vector<std::string>& sources,
                                               Enum_VariableSourceType type) {
  if (sources.empty()) return -1;
  return StatusOf(TableFrame::Run(
      *this, HistoryOperation("KSObjectRuleSql::RemoveRuleHistoryBySource", TableAccess::kChange),
      [&](CppSQLite3DB& db) { DeleteSources(db, kHistoryTable, sources, kHistoryColumns, type); }));
}

}  // namespace keelstone
