#include "program/commands/object_listing.h"

#include <array>
#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"

namespace keelstone::host {

namespace {

constexpr int kPageRows = 200;
constexpr std::array<const char*, 5> kColumns = {"deviceName", "interfaceValue", "variableSource",
                                                 "param", "variableName"};
constexpr const char* kKey = "deviceName, interfaceValue, variableSource, param, variableName";
constexpr const char* kRule =
    "select ruleTypeId, ruleGenerateType, variableDataType, ruleAlgParameter from "
    "main.KSObjectRule where deviceName = ? and interfaceValue = ? and variableSource = ? and "
    "param = ? and variableName = ? and variableSourceType = 2";
constexpr const char* kHistory =
    "select HistoryData from history.KSObjectHistory where deviceName = ? and interfaceValue = ? "
    "and variableSource = ? and param = ? and variableName = ? and variableSourceType = 2";

void BindKey(CppSQLite3Statement& statement, const RuleKey& key) {
  statement.reset();
  int parameter = 1;
  for (const std::string& part : key) statement.bind(parameter++, std::string_view(part));
}

}  // namespace

ObjectListing::ObjectListing(const std::string& domainId,
                             std::array<std::optional<std::string>, 5> filter)
    : filter_(std::move(filter)) {
  db_.open(DomainDatabase(kDbObjectRule, domainId), CppSQLite3DB::Mode::kReadWrite);
  CppSQLite3Statement attach = db_.compileStatement("attach database ? as history");
  attach.bind(1, std::string_view(DomainDatabase(kDbObjectHistory, domainId)));
  attach.execDML();
}

std::vector<StoredObject> ObjectListing::NextPage() {
  // Numbered parameters, because each half of the union asks for the same.
  std::string chosen = " where variableSourceType = 2";
  for (std::size_t i = 0; i < filter_.size(); ++i) {
    if (filter_[i]) chosen.append(" and ").append(kColumns[i]) += " = ?" + std::to_string(i + 1);
  }
  if (last_) chosen.append(" and (").append(kKey).append(") > (?6, ?7, ?8, ?9, ?10)");
  const std::string sql = std::string("select ") + kKey + " from main.KSObjectRule" + chosen +
                          " union select " + kKey + " from history.KSObjectHistory" + chosen +
                          " order by 1, 2, 3, 4, 5 limit " + std::to_string(kPageRows);
  // A page is read as it stands at one moment.
  db_.execDML("begin");
  std::vector<StoredObject> page;
  CppSQLite3Statement select = db_.compileStatement(sql);
  for (std::size_t i = 0; i < filter_.size(); ++i) {
    if (filter_[i]) select.bind(static_cast<int>(i) + 1, std::string_view(*filter_[i]));
    if (last_) select.bind(static_cast<int>(i) + 6, std::string_view((*last_)[i]));
  }
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    StoredObject& object = page.emplace_back();
    int field = 0;
    for (std::string& part : object.key) part = rows.getStringField(field++);
  }
  CppSQLite3Statement rule = db_.compileStatement(kRule);
  CppSQLite3Statement history = db_.compileStatement(kHistory);
  for (StoredObject& object : page) {
    BindKey(rule, object.key);
    if (const CppSQLite3Query row = rule.execQuery(); !row.eof()) {
      object.hasRule = true;
      object.ruleType = row.getIntField(0, -1);
      object.generateType = row.getIntField(1);
      object.variableType = row.getIntField(2, -1);
      object.parameter = row.getStringField(3);
    }
    BindKey(history, object.key);
    if (const CppSQLite3Query row = history.execQuery(); !row.eof()) {
      object.history = row.getStringField(0);
    }
  }
  select.finalize();
  rule.finalize();
  history.finalize();
  db_.execDML("commit");
  if (!page.empty()) last_ = page.back().key;
  return page;
}

}  // namespace keelstone::host
