#include "keelstone/object_listing.h"

#include <string_view>
#include <utility>

#include "base/text/strings.h"
#include "keelstone/domain_files.h"
#include "storage/tables/object_rule_schema.h"

namespace keelstone {

namespace {

constexpr std::array<const char*, 5> kColumns = {"deviceName", "interfaceValue", "variableSource",
                                                 "param", "variableName"};
constexpr const char* kKey = "deviceName, interfaceValue, variableSource, param, variableName";
constexpr const char* kRules = "main.KSObjectRule";
constexpr const char* kHistories = "second.KSObjectHistory";
constexpr const char* kSelectHistory =
    "select HistoryData from {0} where deviceName = ?1 and interfaceValue = ?2 and variableSource "
    "= ?3 and param = ?4 and variableName = ?5 and variableSourceType = 2";
constexpr const char* kRuleColumns =
    "ruleTypeId, ruleGenerateType, variableDataType, ruleAlgParameter";
static_assert(kVariableSourceParser == 2);

// The parameters of a page's statement; the filter's come first.
constexpr int kLast = 6;
constexpr int kPageSize = 11;

/// Which rows of a table come next.
std::string Condition(const ListingScope& scope, bool isFirst) {
  std::string text = " where variableSourceType = 2";
  for (std::size_t i = 0; i < kColumns.size(); ++i) {
    if (scope.filter[i]) text.append(" and ").append(kColumns[i]) += " = ?" + std::to_string(i + 1);
  }
  if (!isFirst) text.append(" and (").append(kKey).append(") > (?6, ?7, ?8, ?9, ?10)");
  return text.append(" order by ").append(kKey).append(" limit ?11");
}

/// Each half of the union is cut to a page, so that neither table is read to its end.
std::string PageOfAll(const std::string& condition) {
  const auto keysOf = [&](const char* table) {
    return FormatPositional("select * from (select {0} from {1}{2})", {kKey, table, condition});
  };
  return FormatPositional(
      "select k.*, {0} from (select *, 2 as variableSourceType from ({1} union {2} order by {3} "
      "limit ?11)) k left join {4} r using ({3}, variableSourceType) order by k.deviceName, "
      "k.interfaceValue, k.variableSource, k.param, k.variableName",
      {kRuleColumns, keysOf(kRules), keysOf(kHistories), kKey, kRules});
}

std::string PageOfRules(const std::string& condition) {
  return FormatPositional("select {0}, variableSourceType, {1} from {2}{3}",
                          {kKey, kRuleColumns, kRules, condition});
}

StoredObject ReadObject(const CppSQLite3Query& row) {
  StoredObject object;
  int field = 0;
  for (std::string& part : object.key) part = row.getStringField(field++);
  ++field;  // the source type
  object.hasRule = !row.fieldIsNull(field);
  object.ruleType = row.getIntField(field++, -1);
  object.generateType = row.getIntField(field++);
  object.variableType = row.getIntField(field++, -1);
  object.parameter = row.getStringField(field);
  return object;
}

void ReadHistory(CppSQLite3Statement& select, StoredObject& object) {
  int parameter = 1;
  select.reset();
  for (const std::string& part : object.key) select.bindStatic(parameter++, part);
  const CppSQLite3Query row = select.execQuery();
  object.hasHistory = !row.eof();
  if (object.hasHistory) object.history = row.getStringField(0);
}

void BindPage(CppSQLite3Statement& select, const ListingScope& scope,
              const std::optional<StoredKey>& last) {
  for (std::size_t i = 0; i < kColumns.size(); ++i) {
    const int place = static_cast<int>(i);
    if (scope.filter[i]) select.bindStatic(place + 1, *scope.filter[i]);
    if (last) select.bindStatic(place + kLast, (*last)[i]);
  }
  select.bind(kPageSize, scope.pageSize);
}

std::vector<StoredObject> ReadPage(CppSQLite3DB& db, const ListingScope& scope,
                                   const std::optional<StoredKey>& last) {
  const std::string condition = Condition(scope, !last.has_value());
  std::vector<StoredObject> page;
  auto select =
      db.compileStatement(scope.onlyRules ? PageOfRules(condition) : PageOfAll(condition));
  BindPage(select, scope, last);
  for (auto row = select.execQuery(); !row.eof(); row.nextRow()) {
    page.push_back(ReadObject(row));
    if (scope.onlyRules) page.back().hasRule = true;
  }
  if (scope.withHistories) {
    auto history = db.compileStatement(FormatPositional(kSelectHistory, {kHistories}));
    for (StoredObject& object : page) ReadHistory(history, object);
  }
  return page;
}

}  // namespace

ObjectListing::ObjectListing(std::string domainId, ListingScope scope)
    : domainId_(std::move(domainId)), scope_(std::move(scope)) {}

std::string ObjectListing::NextPage(std::vector<StoredObject>& page) {
  page.clear();
  TableFault fault;
  const TableOutcome outcome = TableFrame::ReadTogether(
      domainId_, RuleOperation("ObjectListing::NextPage"), DomainDatabase(kDbObjectRule, domainId_),
      HistoryOperation("ObjectListing::NextPage"), DomainDatabase(kDbObjectHistory, domainId_),
      [&](CppSQLite3DB& db) { page = ReadPage(db, scope_, last_); }, &fault);
  if (outcome != TableOutcome::kRan) return fault.Text();
  if (!page.empty()) last_ = page.back().key;
  return {};
}

std::string ObjectListing::ReadHistories(const std::vector<StoredObject*>& objects) const {
  if (objects.empty()) return {};
  TableFault fault;
  const TableOutcome outcome = TableFrame::RunAt(
      domainId_, DomainDatabase(kDbObjectHistory, domainId_),
      HistoryOperation("ObjectListing::ReadHistories"),
      [&](CppSQLite3DB& db) {
        auto select = db.compileStatement(FormatPositional(kSelectHistory, {kHistoryTable}));
        for (StoredObject* object : objects) ReadHistory(select, *object);
      },
      &fault);
  return outcome == TableOutcome::kRan ? std::string() : fault.Text();
}

std::string ReadStoredObject(const std::string& domainId, const StoredKey& key,
                             StoredObject& object) {
  ListingScope scope{.filter = {}, .withHistories = true, .pageSize = 1};
  for (std::size_t i = 0; i < key.size(); ++i) scope.filter[i] = key[i];
  std::vector<StoredObject> page;
  std::string fault = ObjectListing(domainId, std::move(scope)).NextPage(page);
  object = page.empty() ? StoredObject{} : std::move(page.front());
  object.key = key;
  return fault;
}

}  // namespace keelstone
