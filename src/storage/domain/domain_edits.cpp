#include "keelstone/domain_edits.h"

#include <cstdint>
#include <memory>
#include <optional>

#include "keelstone/database_files.h"
#include "keelstone/first_failure.h"
#include "keelstone/json_reader.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/rule_global_setting.h"
#include "storage/domain/domain_place.h"
#include "storage/tables/object_rule_schema.h"

namespace keelstone {

namespace {

constexpr const char* kSource = "domain_edits";
constexpr TableOperation kStoreSetting{.table = "KSGlobalSetting",
                                       .dbType = kDbGlobalSetting,
                                       .function = "StoreSetting",
                                       .source = kSource,
                                       .access = TableAccess::kChange};

constexpr const char* kSelectSettings = "select id, data from KSGlobalSetting";
constexpr const char* kUpdateSetting = "update KSGlobalSetting set data = ? where id = ?";
constexpr const char* kInsertSetting = "insert into KSGlobalSetting (data) values (?)";

/// Waits until rules and histories may be written; why they may not.
std::string WriteFault(const std::string& domainId, const char* function) {
  const auto look = [](CppSQLite3DB& db) { InTransaction(db, [] { return false; }); };
  std::string fault = RunOnDomain(domainId, RuleOperation(function, TableAccess::kChange), look);
  if (!fault.empty()) return fault;
  return RunOnDomain(domainId, HistoryOperation(function, TableAccess::kChange), look);
}

/// Does `change` on the rules of the domain; why it failed. Nothing is changed where one of
/// the two files cannot be written.
template <class Change>
std::string ChangeRules(const std::string& domainId, const char* function, const Change& change) {
  std::string fault = WriteFault(domainId, function);
  if (!fault.empty()) return fault;
  KSObjectRuleSql table(DomainsSubPath());
  table.InitDB(domainId);
  const std::uint64_t failedBefore = FailedOperationsHere();
  change(table);
  if (FailedOperationsHere() == failedBefore) return {};
  fault = FirstFailure();
  return fault.empty() ? "the databases could not be written" : fault;
}

/// A key in the words of the rule table.
struct RowKey {
  explicit RowKey(const StoredKey& key) : source(key[2]), param(key[3]), variable(key[4]) {
    object.deviceName = key[0];
    object.interfaceValue = key[1];
  }
  ObjectDefine object;
  const std::string& source;
  const std::string& param;
  const std::string& variable;
};

/// A row of the settings; of two rows with one name the later counts.
struct SettingRow {
  std::int64_t id = 0;
  JsonValue value;
};

std::optional<SettingRow> ReadRow(CppSQLite3DB& db, const std::string& name) {
  std::optional<SettingRow> found;
  auto select = db.compileStatement(kSelectSettings);
  for (auto rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
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
  auto write = db.compileStatement(old ? kUpdateSetting : kInsertSetting);
  write.bind(1, std::string_view(row.toString()));
  if (old) write.bind(2, old->id);
  write.execDML();
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

/// Within a transaction; false when what is stored does not take the value.
bool ChangeRow(CppSQLite3DB& db, const SettingPath& setting, const JsonValue& value) {
  const std::optional<SettingRow> old = ReadRow(db, setting.row);
  JsonValue row = old ? old->value : JsonValue();
  // Members that are absent read as 0: without a row the others start as `init` has them.
  if (!old && setting.row == kGeneralSettingRow) row = DefaultGeneralSettings();
  if (!Put(row, setting, value)) return false;
  WriteRow(db, old, setting.row, row);
  return true;
}

}  // namespace

std::string PrescribeRule(const std::string& domainId, const PrescribedRule& rule) {
  const RowKey key(rule.key);
  const auto definition =
      std::make_shared<RuleDefinitionData>(static_cast<int>(rule.type), kVariableSourceParser,
                                           rule.parameter, key.source, key.variable, 0, key.param);
  definition->ruleGenerateType = kRulePrescribed;
  definition->history = rule.history;
  return ChangeRules(domainId, "PrescribeRule", [&](KSObjectRuleSql& table) {
    table.SetRuleAlgParam({{key.variable, definition}}, &key.object, key.source, key.param,
                          kVariableSourceParser);
  });
}

std::string RemoveRule(const std::string& domainId, const StoredKey& stored) {
  const RowKey key(stored);
  return ChangeRules(domainId, "RemoveRule", [&](KSObjectRuleSql& table) {
    table.RemoveRuleDefinitionData(&key.object, key.source, key.variable, key.param,
                                   kVariableSourceParser);
  });
}

EditOutcome StoreSetting(const std::string& domainId, const SettingPath& setting,
                         const JsonValue& value) {
  bool isTaken = false;
  std::string fault = RunOnDomain(domainId, kStoreSetting, [&](CppSQLite3DB& db) {
    isTaken = InTransaction(db, [&] { return ChangeRow(db, setting, value); });
  });
  if (!fault.empty()) return {EditOutcome::Kind::kFailed, std::move(fault)};
  if (isTaken) return {};
  return {EditOutcome::Kind::kRefused,
          "the stored " + setting.row + " is no object where " + setting.path + " lies"};
}

}  // namespace keelstone
