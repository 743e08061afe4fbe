#include "program/commands/rule_listing.h"

#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_records.h"

namespace keelstone::host {

namespace {

constexpr int kPageRows = 200;

constexpr std::array<const char*, 5> kKeyColumns = {
    "r.deviceName", "r.interfaceValue", "r.variableSource", "r.param", "r.variableName"};

constexpr const char* kSelect =
    "select r.deviceName, r.interfaceValue, r.variableSource, r.param, r.variableName, "
    "r.ruleTypeId, r.ruleAlgParameter, r.ruleGenerateType, h.HistoryData from main.KSObjectRule r "
    "left join history.KSObjectHistory h on h.deviceName = r.deviceName and h.interfaceValue = "
    "r.interfaceValue and h.variableSource = r.variableSource and h.param = r.param and "
    "h.variableName = r.variableName and h.variableSourceType = r.variableSourceType where "
    "r.variableSourceType = 2";
constexpr const char* kAfterLast =
    " and (r.deviceName, r.interfaceValue, r.variableSource, r.param, r.variableName) > "
    "(?, ?, ?, ?, ?)";
constexpr const char* kOrder =
    " order by r.deviceName, r.interfaceValue, r.variableSource, r.param, r.variableName limit ";

/// Counts the points of a history text and finds the newest; what is no history has none.
void ReadHistory(std::string_view text, ListedRule& rule) {
  JsonValue history;
  if (text.empty() || !JsonReader::Parse(text, history)) return;
  const JsonValue* const list = history.find("dataList");
  if (list == nullptr || !list->isArray() || list->empty()) return;
  rule.points = list->size();
  const JsonValue& constant = *list;
  const JsonValue* const time = constant[list->size() - 1].find("liveTime");
  if (time != nullptr && time->isInt64()) rule.newest = time->asInt64();
}

}  // namespace

RuleListing::RuleListing(const std::string& domainId,
                         std::array<std::optional<std::string>, 5> filter)
    : filter_(std::move(filter)) {
  db_.open(DomainDatabase(kDbObjectRule, domainId), CppSQLite3DB::Mode::kReadWrite);
  CppSQLite3Statement attach = db_.compileStatement("attach database ? as history");
  attach.bind(1, std::string_view(DomainDatabase(kDbObjectHistory, domainId)));
  attach.execDML();
}

CppSQLite3Statement RuleListing::Select() {
  std::string sql = kSelect;
  for (std::size_t i = 0; i < filter_.size(); ++i) {
    if (filter_[i]) sql.append(" and ").append(kKeyColumns[i]).append(" = ?");
  }
  if (last_) sql += kAfterLast;
  CppSQLite3Statement select = db_.compileStatement(sql + kOrder + std::to_string(kPageRows));
  int parameter = 1;
  for (const std::optional<std::string>& wanted : filter_) {
    if (wanted) select.bind(parameter++, std::string_view(*wanted));
  }
  if (last_) {
    for (const std::string& part : *last_) select.bind(parameter++, std::string_view(part));
  }
  return select;
}

std::vector<ListedRule> RuleListing::NextPage() {
  std::vector<ListedRule> page;
  CppSQLite3Statement select = Select();
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
    ListedRule& rule = page.emplace_back();
    int field = 0;
    for (std::string& part : rule.key) part = rows.getStringField(field++);
    rule.type = rows.getIntField(field++, -1);
    rule.parameter = rows.getStringField(field++);
    rule.learned = rows.getIntField(field++) == kRuleLearned;
    ReadHistory(rows.getStringField(field), rule);
  }
  if (!page.empty()) last_ = page.back().key;
  return page;
}

}  // namespace keelstone::host
