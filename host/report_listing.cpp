#include "host/report_listing.h"

#include <string_view>

#include "engine/ksrulerecords.h"
#include "platform/filesystem.h"
#include "storage/domain_files.h"

namespace keelstone::host {

namespace {

constexpr const char* kPageRows = "100";
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
  const std::string using_ = std::string(" using (") + kKey + ", variableSourceType)";
  return "select k.*, r.ruleGenerateType, r.ruleTypeId, r.ruleAlgParameter, h.HistoryData from "
         "(select *, 2 as variableSourceType from (" +
         keys + ")) k left join main.KSObjectRule r" + using_ +
         " left join history.KSObjectHistory h" + using_ + " order by " +
         "k.deviceName, k.interfaceValue, k.variableSource, k.param, k.variableName";
}

}  // namespace

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
    variable.parameter = rows.getStringField(field++);
    variable.history = rows.getStringField(field);
  }
  if (!page.empty()) last_ = page.back().key;
  return page;
}

}  // namespace keelstone::host
