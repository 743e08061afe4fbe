#include <algorithm>
#include <optional>
#include <string_view>
#include <tuple>

#include "diag/fsperformance.h"
#include "platform/strings.h"
#include "storage/ksobjectrulesql.h"
#include "storage/object_rule_tables.h"

namespace keelstone {

namespace {

constexpr const char* kSelectObjectRules =
    "select variableDataType,interfacePath,vxNodePathSchema,deviceName,ruleGenerateType,"
    "ruleTypeId,ruleAlgParameter,isEnable,isDel,variableName from {0} where deviceName = ? and "
    "interfaceValue = ? and variableSource = ? and param = ? and variableSourceType = ?";
constexpr const char* kSelectUnitRules =
    "select variableDataType,interfacePath,vxNodePathSchema,ruleGenerateType,ruleTypeId,"
    "ruleAlgParameter,isEnable,isDel,variableName,interfaceValue,deviceName,variableSource,param "
    "from {0} where ";
constexpr const char* kSelectUnitHistories =
    "select HistoryData,variableName,interfaceValue,deviceName,variableSource, param from {0} "
    "where ";
constexpr const char* kUnitGroup =
    "(deviceName = ? and variableSource = ? and param = ? and variableSourceType = ?)";
constexpr const char* kOr = " OR ";
constexpr const char* kSelectDeviceHistories =
    "select HistoryData,variableName,interfaceValue from {0} where  deviceName = ? and "
    "variableSource = ? and param = ? and variableSourceType = ?";
constexpr const char* kSelectObjectHistories =
    "select HistoryData,variableName from {0} where deviceName = ? and interfaceValue = ? and "
    "variableSource = ? and param = ? and variableSourceType = ?";
constexpr const char* kExistsRule =
    "select EXISTS(select 1 from {0} where deviceName=? and variableSource=? and param=? and "
    "ruleGenerateType=? and variableSourceType=? )";
constexpr const char* kSelectSources =
    "select DISTINCT variableSource from {0} where variableSourceType=?";

// SQLite takes an expression at most 1000 levels deep, and each OR is a level.
constexpr std::size_t kMaxGroups = 900;
constexpr int kGroupParameters = 4;

using UnitKeys = std::vector<std::shared_ptr<UnitKey>>;

// Where the columns of a definition stand in a query.
class DefinitionReader {
 public:
  explicit DefinitionReader(const CppSQLite3Query& query)
      : variableName_(query.fieldIndex("variableName")),
        ruleType_(query.fieldIndex("ruleTypeId")),
        ruleParam_(query.fieldIndex("ruleAlgParameter")),
        generateType_(query.fieldIndex("ruleGenerateType")),
        variableType_(query.fieldIndex("variableDataType")) {}

  std::string VariableName(const CppSQLite3Query& query) const {
    return std::string(query.getStringField(variableName_));
  }

  std::shared_ptr<RuleDefinitionData> Definition(const CppSQLite3Query& query) const {
    auto definition = std::make_shared<RuleDefinitionData>();
    definition->ruleType = query.getIntField(ruleType_, -1);
    definition->ruleParam = query.getStringField(ruleParam_);
    definition->ruleGenerateType = query.getIntField(generateType_, -1);
    definition->variableType = query.getIntField(variableType_, -1);
    return definition;
  }

 private:
  int variableName_;
  int ruleType_;
  int ruleParam_;
  int generateType_;
  int variableType_;
};

// Files rows under the unit that they name; rows of one unit mostly follow each other.
template <class Unit>
class UnitFiler {
 public:
  UnitFiler(std::map<std::string, std::shared_ptr<Unit>>& out, const CppSQLite3Query& query)
      : out_(out),
        device_(query.fieldIndex("deviceName")),
        source_(query.fieldIndex("variableSource")),
        param_(query.fieldIndex("param")),
        interface_(query.fieldIndex("interfaceValue")) {}

  auto& InterfaceOf(const CppSQLite3Query& query) {
    const std::string_view device = query.getStringField(device_);
    const std::string_view source = query.getStringField(source_);
    const std::string_view param = query.getStringField(param_);
    if (unit_ == nullptr || key_.deviceName != device || key_.variableSource != source ||
        key_.variableParam != param) {
      key_ = UnitKey(std::string(device), std::string(source), std::string(param));
      std::shared_ptr<Unit>& unit = out_[key_.GetKeyString()];
      if (unit == nullptr) unit = std::make_shared<Unit>();
      unit_ = unit.get();
    }
    return (*unit_)[std::string(query.getStringField(interface_))];
  }

 private:
  std::map<std::string, std::shared_ptr<Unit>>& out_;
  int device_;
  int source_;
  int param_;
  int interface_;
  UnitKey key_;
  Unit* unit_ = nullptr;
};

void BindGroup(CppSQLite3Statement& statement, int first, const UnitKey& key,
               Enum_VariableSourceType type) {
  statement.bindStatic(first, key.deviceName);
  statement.bindStatic(first + 1, key.variableSource);
  statement.bindStatic(first + 2, key.variableParam);
  statement.bind(first + 3, static_cast<int>(type));
}

// The keys without empty pointers.
std::vector<const UnitKey*> Present(const UnitKeys& keys) {
  std::vector<const UnitKey*> present;
  present.reserve(keys.size());
  for (const auto& key : keys) {
    if (key != nullptr) present.push_back(key.get());
  }
  return present;
}

// The keys in order, each once.
void SortUnique(std::vector<const UnitKey*>& keys) {
  const auto tie = [](const UnitKey* key) {
    return std::tie(key->deviceName, key->variableSource, key->variableParam);
  };
  std::sort(keys.begin(), keys.end(),
            [&](const UnitKey* a, const UnitKey* b) { return tie(a) < tie(b); });
  keys.erase(std::unique(keys.begin(), keys.end(),
                         [&](const UnitKey* a, const UnitKey* b) { return tie(a) == tie(b); }),
             keys.end());
}

// Runs `select` over all units: one statement with a group a key while SQLite takes it,
// beyond that a statement of one group, bound anew a key, in one read transaction.
template <class TakeRows>
void SelectUnits(CppSQLite3DB& db, std::string select, std::vector<const UnitKey*> keys,
                 Enum_VariableSourceType type, const TakeRows& takeRows) {
  if (keys.empty()) return;
  if (keys.size() <= kMaxGroups) {
    for (std::size_t i = 0; i < keys.size(); ++i) select.append(i == 0 ? "" : kOr) += kUnitGroup;
    auto statement = db.compileStatement(select);
    int first = 1;
    for (const UnitKey* key : keys) {
      BindGroup(statement, first, *key, type);
      first += kGroupParameters;
    }
    takeRows(statement.execQuery());
    return;
  }
  SortUnique(keys);
  db.execDML("begin transaction;");
  {
    auto statement = db.compileStatement(select + kUnitGroup);
    for (const UnitKey* key : keys) {
      BindGroup(statement, 1, *key, type);
      takeRows(statement.execQuery());
      statement.reset();
    }
  }
  db.execDML("commit transaction;");
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
        SelectUnits(db, FormatPositional(kSelectUnitHistories, {kHistoryTable}), Present(keys),
                    type, [&out](CppSQLite3Query query) {
                      if (query.eof()) return;
                      UnitFiler<DevParserHistory> filer(out, query);
                      for (; !query.eof(); query.nextRow()) {
                        filer.InterfaceOf(query)[std::string(query.getStringField(1))] =
                            query.getStringField(0);
                      }
                    });
      }));
}

int KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers(
    std::map<std::string, std::shared_ptr<DevParserRule>>& out, const UnitKeys& keys,
    Enum_VariableSourceType type) {
  const FSPerformance whole("KSObjectRuleSql", "GetMultiRuleDefinitionDataByDevParsers");
  return StatusOf(TableFrame::Run(
      *this, RuleOperation("KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers"),
      [&](CppSQLite3DB& db) {
        SelectUnits(db, FormatPositional(kSelectUnitRules, {kRuleTable}), Present(keys), type,
                    [&out](CppSQLite3Query query) {
                      if (query.eof()) return;
                      UnitFiler<DevParserRule> filer(out, query);
                      const DefinitionReader reader(query);
                      for (; !query.eof(); query.nextRow()) {
                        filer.InterfaceOf(query)[reader.VariableName(query)] =
                            reader.Definition(query);
                      }
                    });
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
        auto query = statement.execQuery();
        const DefinitionReader reader(query);
        for (; !query.eof(); query.nextRow()) {
          const auto [place, isNew] = out.try_emplace(reader.VariableName(query));
          if (isNew) place->second = reader.Definition(query);
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
  if (unit != units.end() && unit->second != nullptr) out = *unit->second;
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
  const char* select = allInterfaces ? kSelectDeviceHistories : kSelectObjectHistories;
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
        for (auto query = statement.execQuery(); !query.eof(); query.nextRow()) {
          const auto interface = allInterfaces ? query.getStringField(2) : std::string_view();
          out[std::string(interface)][std::string(query.getStringField(1))] =
              query.getStringField(0);
        }
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
