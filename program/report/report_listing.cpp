#include "program/report/report_listing.h"

#include <algorithm>
#include <string_view>

#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/rule_records.h"

namespace keelstone::host {

namespace {

constexpr const char* kPageRows = "1000";
constexpr const char* kKey = "deviceName, interfaceValue, variableSource, param, variableName";

/// The first keys of a table beyond the bound one, if any.
std::string KeysOf(const char* table, bool isAfterLast) {
  std::string sql = std::string("select * from (select ") + kKey + " from " + table +
                    " where variableSourceType = 2";
  if (isAfterLast) sql.append(" and (").append(kKey).append(") > (?1, ?2, ?3, ?4, ?5)");
  return sql.append(" order by ").append(kKey).append(" limit ").append(kPageRows).append(")");
}

std::string PageOf(bool isAfterLast) {
  const std::string keys = KeysOf("main.KSObjectRule", isAfterLast) + " union " +
                           KeysOf("history.KSObjectHistory", isAfterLast) + " order by " + kKey +
                           " limit " + kPageRows;
  return "select k.*, r.ruleGenerateType, r.ruleTypeId, r.ruleAlgParameter from "
         "(select *, 2 as variableSourceType from (" +
         keys + ")) k left join main.KSObjectRule r using (" + kKey +
         ", variableSourceType) order by " +
         "k.deviceName, k.interfaceValue, k.variableSource, k.param, k.variableName";
}

}  // namespace

ReportKey KeyOf(const std::string& domain, const StoredVariable& variable) {
  ReportKey key = {domain};
  std::copy(variable.key.begin(), variable.key.end(), key.begin() + 1);
  return key;
}

ReportListing::ReportListing(const std::string& domainId) {
  db_.open(DomainDatabase(kDbObjectRule, domainId), CppSQLite3DB::Mode::kReadWrite);
  CppSQLite3Statement attach = db_.compileStatement("attach database ? as history");
  attach.bind(1, std::string_view(DomainDatabase(kDbObjectHistory, domainId)));
  attach.execDML();
}

std::vector<StoredVariable> ReportListing::NextPage() {
  std::vector<StoredVariable> page;
  CppSQLite3Statement select = db_.compileStatement(PageOf(last_.has_value()));
  if (last_) {
    int parameter = 1;
    for (const std::string& part : *last_) select.bind(parameter++, std::string_view(part));
  }
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    StoredVariable& variable = page.emplace_back();
    int field = 0;
    for (std::string& part : variable.key) part = rows.getStringField(field++);
    ++field;  // the source type
    variable.hasRule = !rows.fieldIsNull(field);
    variable.isLearned = rows.getIntField(field++) == kRuleLearned;
    variable.type = rows.getIntField(field++, -1);
    variable.parameter = rows.getStringField(field);
  }
  if (!page.empty()) last_ = page.back().key;
  return page;
}

void ReportListing::ReadHistory(StoredVariable& variable) {
  if (!history_) {
    history_.emplace(db_.compileStatement(
        "select HistoryData from history.KSObjectHistory where deviceName = ? and interfaceValue "
        "= ? and variableSource = ? and param = ? and variableName = ? and variableSourceType = "
        "2"));
  }
  int parameter = 1;
  for (const std::string& part : variable.key) history_->bind(parameter++, std::string_view(part));
  CppSQLite3Query rows = history_->execQuery();
  if (!rows.eof()) variable.history = rows.getStringField(0);
  history_->reset();  // it would hold a lock
}

}  // namespace keelstone::host
