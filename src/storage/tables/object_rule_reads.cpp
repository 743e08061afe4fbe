#include <algorithm>
#include <optional>
#include <string_view>
#include <tuple>

#include "base/text/strings.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/performance.h"
#include "storage/tables/object_rule_schema.h"
#include "storage/tables/stored_definition.h"

namespace keelstone {

namespace {

constexpr const char* kSelectObjectRules =
    "select variableDataType,ruleGenerateType,ruleTypeId,ruleAlgParameter,variableName from {0} "
    "where deviceName = ? and interfaceValue = ? and variableSource = ? and param = ? and "
    "variableSourceType = ?";
constexpr const char* kSelectUnitRules =
    "select variableDataType,ruleGenerateType,ruleTypeId,ruleAlgParameter,variableName,"
    "interfaceValue from {0} where deviceName = ? and variableSource = ? and param = ? and "
    "variableSourceType = ?";
constexpr const char* kSelectUnitHistories =
    "select HistoryData,variableName,interfaceValue from {0} where deviceName = ? and "
    "variableSource = ? and param = ? and variableSourceType = ?";
constexpr const char* kSelectObjectHistories =
    "select HistoryData,variableName from {0} where deviceName = ? and interfaceValue = ? and "
    "variableSource = ? and param = ? and variableSourceType = ?";
constexpr const char* kExistsRule =
    "select EXISTS(select 1 from {0} where deviceName=? and variableSource=? and param=? and "
    "ruleGenerateType=? and variableSourceType=? )";
constexpr const char* kSelectSources =
    "select DISTINCT variableSource from {0} where variableSourceType=?";

using UnitKeys = std::vector<std::shared_ptr<UnitKey>>;

// Where the columns of a definition stand in a selection.
struct DefinitionColumns {
  int variableName;
  int variableType;
  int generateType;
  int ruleType;
  int ruleParam;
};
constexpr DefinitionColumns kRuleColumns{4, 0, 1, 2, 3};

std::shared_ptr<RuleDefinitionData> ReadDefinition(const CppSQLite3Query& query,
                                                   const DefinitionColumns& columns) {
  return StoredDefinition(
      query.getIntField(columns.ruleType, -1), query.getStringField(columns.ruleParam),
      query.getIntField(columns.generateType, -1), query.getIntField(columns.variableType, -1));
}

// Files rows by interface value and variable name. They come in the order of the primary
// key, so the place of a row is mostly the end of the maps.
template <class Value>
class RowFiler {
 public:
  using Unit = std::map<std::string, std::map<std::string, Value>>;
  explicit RowFiler(Unit& unit) : unit_(unit) {}

  Value& Place(std::string_view interfaceValue, std::string_view variableName) {
    if (current_ == unit_.end() || current_->first != interfaceValue) {
      current_ = unit_.try_emplace(unit_.end(), std::string(interfaceValue));
    }
    auto& values = current_->second;
    return values.try_emplace(values.end(), std::string(variableName))->second;
  }

 private:
  Unit& unit_;
  typename Unit::iterator current_ = unit_.end();
};

void FileDefinitions(CppSQLite3Query query, DevParserRule& out) {
  constexpr int kInterface = 5;
  RowFiler<std::shared_ptr<RuleDefinitionData>> filer(out);
  for (; !query.eof(); query.nextRow()) {
    filer.Place(query.getStringField(kInterface), query.getStringField(kRuleColumns.variableName)) =
        ReadDefinition(query, kRuleColumns);
  }
}

// `interface` is the column of the interface value; -1 files all under the empty one.
void FileHistories(CppSQLite3Query query, DevParserHistory& out, int interface) {
  RowFiler<std::string> filer(out);
  for (; !query.eof(); query.nextRow()) {
    filer.Place(interface < 0 ? std::string_view() : query.getStringField(interface),
                query.getStringField(1)) = query.getStringField(0);
  }
}

void BindUnit(CppSQLite3Statement& statement, const UnitKey& key, Enum_VariableSourceType type) {
  statement.bindStatic(1, key.deviceName);
  statement.bindStatic(2, key.variableSource);
  statement.bindStatic(3, key.variableParam);
  statement.bind(4, static_cast<int>(type));
}

// The keys in order, each once and without empty pointers.
std::vector<const UnitKey*> SortUnique(const UnitKeys& keys) {
  std::vector<const UnitKey*> sorted;
  sorted.reserve(keys.size());
  for (const auto& key : keys) {
    if (key != nullptr) sorted.push_back(key.get());
  }
  const auto tie = [](const UnitKey* key) {
    return std::tie(key->deviceName, key->variableSource, key->variableParam);
  };
  std::sort(sorted.begin(), sorted.end(),
            [&](const UnitKey* a, const UnitKey* b) { return tie(a) < tie(b); });
  sorted.erase(std::unique(sorted.begin(), sorted.end(),
                           [&](const UnitKey* a, const UnitKey* b) { return tie(a) == tie(b); }),
               sorted.end());
  return sorted;
}

// Runs `select` for every unit and hands its rows to `file`, with the unit that takes them;
// a unit without rows gets none. One small statement, bound anew a unit, is faster than one
// with a group a unit, which SQLite takes a limited number of; the frame makes it one reading.
template <class Unit, class File>
void SelectUnits(CppSQLite3DB& db, const std::string& select, const UnitKeys& keys,
                 Enum_VariableSourceType type, std::map<std::string, std::shared_ptr<Unit>>& out,
                 const File& file) {
  const std::vector<const UnitKey*> units = SortUnique(keys);
  if (units.empty()) return;
  auto statement = db.compileStatement(select);
  for (const UnitKey* key : units) {
    BindUnit(statement, *key, type);
    CppSQLite3Query query = statement.execQuery();
    if (query.eof()) continue;
    std::shared_ptr<Unit>& unit = out[key->GetKeyString()];
    if (unit == nullptr) unit = std::make_shared<Unit>();
    file(query, *unit);
  }
}

}  // namespace

int KSObjectRuleSql::GetMultiRuleHistoryDataBeDevParsers(
    std::map<std::string, std::shared_ptr<DevParserHistory>>& out, const UnitKeys& keys,
    Enum_VariableSourceType type) {
  const FSPerformance whole("KSObjectRuleSql", "GetMultiRuleHistoryDataBeDevParsers");
  std::optional<FSPerformance> inner;  // made inside the frame, logged after its lock is free
  return StatusOf(TableFrame::Run(
      *this, HistoryOperation("KSObjectRuleSql::GetMultiRuleHistoryDataBeDevParsers"),
      [&](CppSQLite3DB& db) {
        inner.emplace("KSObjectRuleSql", "GetMultiRuleHistoryDataBeDevParsers - out");
        SelectUnits(
            db, FormatPositional(kSelectUnitHistories, {kHistoryTable}), keys, type, out,
            [](CppSQLite3Query query, DevParserHistory& unit) { FileHistories(query, unit, 2); });
      }));
}

int KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers(
    std::map<std::string, std::shared_ptr<DevParserRule>>& out, const UnitKeys& keys,
    Enum_VariableSourceType type) {
  const FSPerformance whole("KSObjectRuleSql", "GetMultiRuleDefinitionDataByDevParsers");
  return StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers"),
      [&](CppSQLite3DB& db) {
        SelectUnits(db, FormatPositional(kSelectUnitRules, {kRuleTable}), keys, type, out,
                    FileDefinitions);
      }));
}

int KSObjectRuleSql::GetRuleDefinitionDataByDevInf(RuleDefinitionMap& out,
                                                   const ObjectDefine* object,
                                                   const std::string& variableSource,
                                                   const std::string& param,
                                                   Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  const int status = StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::GetRuleDefinitionDataByDevInf"),
      [&](CppSQLite3DB& db) {
        auto statement = db.compileStatement(FormatPositional(kSelectObjectRules, {kRuleTable}));
        statement.bindStatic(1, object->deviceName);
        statement.bindStatic(2, object->interfaceValue);
        statement.bindStatic(3, variableSource);
        statement.bindStatic(4, param);
        statement.bind(5, static_cast<int>(type));
        for (auto query = statement.execQuery(); !query.eof(); query.nextRow()) {
          const auto [place, isNew] =
              out.try_emplace(std::string(query.getStringField(kRuleColumns.variableName)));
          if (isNew) place->second = ReadDefinition(query, kRuleColumns);
        }
      }));
  if (status >= 0) return status;
  DevParserHistory histories;
  if (GetRuleHistoryData(histories, object, variableSource, param, type) >= 0) return status;
  for (auto& [variableName, history] : histories[""]) {
    const auto found = out.find(variableName);
    if (found == out.end() || found->second == nullptr) continue;
    const DefinitionLock lock(*found->second);
    found->second->history = std::move(history);
  }
  return status;
}

int KSObjectRuleSql::GetRuleDefinitionDataByDev(DevParserRule& out, const ObjectDefine* object,
                                                const std::string& variableSource,
                                                const std::string& param,
                                                Enum_VariableSourceType /*type*/) {
  if (object == nullptr) return 0;
  const auto key = std::make_shared<UnitKey>(object->deviceName, variableSource, param);
  std::map<std::string, std::shared_ptr<DevParserRule>> units;
  const int status = GetMultiRuleDefinitionDataByDevParsers(units, {key}, kVariableSourceParser);
  const auto unit = units.find(key->GetKeyString());
  if (unit != units.end() && unit->second != nullptr) out = std::move(*unit->second);
  return status;
}

bool KSObjectRuleSql::IsExistRuleDefinitionByDevice(const ObjectDefine* object,
                                                    const std::string& variableSource,
                                                    const std::string& param,
                                                    Enum_RuleGenerateType generateType,
                                                    Enum_VariableSourceType type) {
  if (object == nullptr) return false;
  const FSPerformance timing("KSObjectRuleSql", "IsExistRuleDefine");
  bool exists = false;
  const TableOutcome outcome = TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::IsExistRuleDefinitionByDevice"),
      [&](CppSQLite3DB& db) {
        auto statement = db.compileStatement(FormatPositional(kExistsRule, {kRuleTable}));
        statement.bindStatic(1, object->deviceName);
        statement.bindStatic(2, variableSource);
        statement.bindStatic(3, param);
        statement.bind(4, static_cast<int>(generateType));
        statement.bind(5, static_cast<int>(type));
        const auto query = statement.execQuery();
        exists = !query.eof() && query.getIntField(0) != 0;
      });
  return outcome == TableOutcome::kRan && exists;
}

int KSObjectRuleSql::GetRuleHistoryData(DevParserHistory& out, const ObjectDefine* object,
                                        const std::string& variableSource, const std::string& param,
                                        Enum_VariableSourceType type) {
  if (object == nullptr) return 0;
  const FSPerformance whole("KSObjectRuleSql", "GetRuleHistoryData");
  std::optional<FSPerformance> inner;  // made inside the frame, logged after its lock is free
  const bool allInterfaces = object->interfaceValue.empty();
  const char* select = allInterfaces ? kSelectUnitHistories : kSelectObjectHistories;
  return StatusOf(TableFrame::Run(
      *this, HistoryOperation("KSObjectRuleSql::GetRuleHistoryData"), [&](CppSQLite3DB& db) {
        inner.emplace("KSObjectRuleSql", "GetRuleHistoryData - out");
        auto statement = db.compileStatement(FormatPositional(select, {kHistoryTable}));
        int parameter = 1;
        statement.bindStatic(parameter++, object->deviceName);
        if (!allInterfaces) statement.bindStatic(parameter++, object->interfaceValue);
        statement.bindStatic(parameter++, variableSource);
        statement.bindStatic(parameter++, param);
        statement.bind(parameter, static_cast<int>(type));
        FileHistories(statement.execQuery(), out, allInterfaces ? 2 : -1);
      }));
}

int KSObjectRuleSql::GetAllSource(std::vector<std::string>& out, Enum_VariableSourceType type) {
  TableFrame::Run(*this, RuleOperation("KSObjectRuleSql::GetAllSource"), [&](CppSQLite3DB& db) {
    auto statement = db.compileStatement(FormatPositional(kSelectSources, {kRuleTable}));
    statement.bind(1, static_cast<int>(type));
    for (auto query = statement.execQuery(); !query.eof(); query.nextRow()) {
      out.emplace_back(query.getStringField(0));
    }
  });
  return static_cast<int>(out.size());
}

}  // namespace keelstone
