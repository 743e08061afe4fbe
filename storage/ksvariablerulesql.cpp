#include "storage/ksvariablerulesql.h"

#include <utility>

#include "platform/filesystem.h"
#include "platform/logger.h"
#include "platform/strings.h"
#include "storage/data_rows.h"

namespace keelstone {

namespace {

constexpr const char* kTable = "KSVariableRule";
constexpr const char* kSource = "ksvariablerulesql";
constexpr const char* kSelect = "select * from KSVariableRule";
constexpr const char* kCreate = "create table {0} (id INTEGER PRIMARY KEY, data TEXT)";
constexpr const char* kInsert = "insert into {0} (data) values(?)";
constexpr std::string_view kSeparator = "$%$";

constexpr int kFound = -1;
constexpr int kNotFound = 2;

std::string RowText(const RuleDefinitionData& definition) {
  JsonValue row(JsonType::Object);
  row["variableSource"] = definition.variableSource;
  row["variableName"] = definition.variableName;
  row["param"] = definition.variableParam;
  row["variableSourceType"] = definition.variableSourceType;
  row["ruleTypeId"] = definition.ruleType;
  row["ruleAlgParameter"] = definition.ruleParam;
  row["variableDataType"] = definition.variableType;
  row["isCustomerEnable"] = definition.enableState;
  row["isInitialEnable"] = definition.enableFlag;
  return row.toString();
}

// What a row keeps of a definition, as reading it back would give it.
std::shared_ptr<const RuleDefinitionData> AsStored(const RuleDefinitionData& definition) {
  auto stored = std::make_shared<RuleDefinitionData>(
      definition.ruleType, definition.variableSourceType, definition.ruleParam,
      definition.variableSource, definition.variableName, definition.variableType,
      definition.variableParam);
  stored->enableState = definition.enableState;
  stored->enableFlag = definition.enableFlag;
  return stored;
}

}  // namespace

KSVariableRuleSql::KSVariableRuleSql(const std::string& subPath) : CKSDBOperateBase(subPath) {}

KSVariableRuleSql::~KSVariableRuleSql() = default;

bool KSVariableRuleSql::InitDB(const std::string& domainId) {
  SetDomainId(domainId);
  return true;
}

std::string KSVariableRuleSql::GenerateKey(std::string_view variableSource,
                                           std::string_view variableName, std::string_view param) {
  std::string key;
  key.reserve(variableSource.size() + variableName.size() + param.size() + 2 * kSeparator.size());
  key.append(variableSource).append(kSeparator).append(param);
  return key.append(kSeparator).append(variableName);
}

void KSVariableRuleSql::SpliteKey(std::string_view key, std::string& variableSource,
                                  std::string& variableName, std::string& param) {
  const std::vector<std::string> pieces = Split(key, kSeparator);
  if (pieces.size() != 3) return;
  variableSource = Trim(pieces[0]);
  param = Trim(pieces[1]);
  variableName = Trim(pieces[2]);
}

std::string KSVariableRuleSql::ReadRow(const JsonValue& row, RuleDefinitionData& definition) {
  definition =
      RuleDefinitionData(IntMember(row, "ruleTypeId"), IntMember(row, "variableSourceType"),
                         TextMember(row, "ruleAlgParameter"), TextMember(row, "variableSource"),
                         TextMember(row, "variableName"), IntMember(row, "variableDataType"),
                         TextMember(row, "param"));
  definition.enableFlag = BoolMember(row, "isInitialEnable");
  definition.enableState = IntMember(row, "isCustomerEnable");
  return GenerateKey(definition.variableSource, definition.variableName, definition.variableParam);
}

void KSVariableRuleSql::RequireRow(const JsonValue& row) {
  RuleDefinitionData definition;
  ReadRow(row, definition);
}

int KSVariableRuleSql::LoadDBData() {
  const DeferredLog log("KSVariableRuleSql::LoadDBData", kSource);
  const MutexLock change(changeMutex_);
  Definitions read;
  const TableOperation operation{.table = kTable,
                                 .dbType = kDbVariableRule,
                                 .function = "KSVariableRuleSql::LoadDBData",
                                 .source = kSource,
                                 .failedName = kSelect};
  const TableOutcome outcome = ReadDataRows(*this, operation, [&read](const JsonValue& row) {
    auto definition = std::make_shared<RuleDefinitionData>();
    std::string key = ReadRow(row, *definition);
    read.insert_or_assign(std::move(key), std::move(definition));
  });
  isLoaded_ = !IsFailure(outcome);
  if (!isLoaded_) return 0;
  const WriterLock lock(mutex_);
  definitions_.swap(read);
  return 1;
}

std::shared_ptr<const RuleDefinitionData> KSVariableRuleSql::GetRuleDefinitionData(
    const std::string& variableSource, const std::string& variableName, const std::string& param,
    Enum_VariableSourceType /*type*/) const {
  const std::string key = GenerateKey(variableSource, variableName, param);
  const ReaderLock lock(mutex_);
  const auto found = definitions_.find(key);
  return found != definitions_.end() ? found->second : nullptr;
}

int KSVariableRuleSql::GetRuleDefinitionData(RuleDefinitionData& out,
                                             const std::string& variableSource,
                                             const std::string& variableName,
                                             const std::string& param,
                                             Enum_VariableSourceType type) const {
  const auto found = GetRuleDefinitionData(variableSource, variableName, param, type);
  if (found == nullptr) return kNotFound;
  out = *found;
  return kFound;
}

bool KSVariableRuleSql::IsExistRuleDefinition(const std::string& variableSource,
                                              const std::string& variableName,
                                              Enum_VariableSourceType /*type*/) const {
  const std::string prefix = variableSource + std::string(kSeparator);
  const ReaderLock lock(mutex_);
  for (auto entry = definitions_.lower_bound(prefix);
       entry != definitions_.end() && entry->first.compare(0, prefix.size(), prefix) == 0;
       ++entry) {
    const RuleDefinitionData& definition = *entry->second;
    // A source may hold the separator itself: the prefix alone proves nothing.
    if (definition.variableSource != variableSource) continue;
    if (variableName.empty() || definition.variableName == variableName) return true;
  }
  return false;
}

bool KSVariableRuleSql::AddRuleDefinitions(const std::vector<RuleDefinitionData>& definitions) {
  DeferredLog log("KSVariableRuleSql::AddRuleDefinitions", kSource);
  const MutexLock change(changeMutex_);
  if (!isLoaded_) {
    log.Add(kLogError, __LINE__, GetDBFile(kDbVariableRule).c_str(),
            " could not be read: nothing is added to it", ".");
    CountFailedWrite();
    return false;
  }
  std::vector<std::shared_ptr<const RuleDefinitionData>> added;
  Definitions fresh;
  for (const RuleDefinitionData& definition : definitions) {
    std::string key =
        GenerateKey(definition.variableSource, definition.variableName, definition.variableParam);
    const ReaderLock lock(mutex_);
    if (definitions_.count(key) != 0 || fresh.count(key) != 0) continue;
    added.push_back(fresh.emplace(std::move(key), AsStored(definition)).first->second);
  }
  if (added.empty()) return true;
  if (!WriteRows(added)) return false;
  const WriterLock lock(mutex_);
  definitions_.merge(fresh);
  return true;
}

bool KSVariableRuleSql::WriteRows(
    const std::vector<std::shared_ptr<const RuleDefinitionData>>& added) {
  const TableOperation operation{.table = kTable,
                                 .dbType = kDbVariableRule,
                                 .function = "KSVariableRuleSql::AddRuleDefinitions",
                                 .source = kSource,
                                 .access = TableAccess::kCreate,
                                 .createSql = kCreate};
  return TableFrame::Run(*this, operation, [&added](CppSQLite3DB& db) {
           auto statement = db.compileStatement(FormatPositional(kInsert, {kTable}));
           db.execDML("begin transaction;");
           for (const auto& definition : added) {
             statement.bind(1, RowText(*definition));
             statement.execDML();
             statement.reset();
           }
           db.execDML("commit transaction;");
         }) == TableOutcome::kRan;
}

}  // namespace keelstone
