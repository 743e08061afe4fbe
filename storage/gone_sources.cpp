#include "storage/gone_sources.h"

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "platform/cppsqlite3.h"
#include "platform/filesystem.h"
#include "storage/cksdboperatebase.h"
#include "storage/domain_files.h"
#include "storage/ksdomaindatamanager.h"

namespace keelstone {

namespace {

/// Calls `visit` with every row of `columns` in a table, for parsers' rows only. Throws
/// CppSQLite3Exception.
template <class Visit>
void ForEachRow(const std::string& file, const char* table, const std::string& columns,
                const std::string& end, Visit visit) {
  if (PathError(file) == ENOENT) return;
  CppSQLite3DB db;
  db.open(file, CppSQLite3DB::Mode::kReadWrite);
  if (!db.tableExists(table)) return;
  CppSQLite3Statement select =
      db.compileStatement("select " + columns + " from " + table + " where variableSourceType = " +
                          std::to_string(kVariableSourceParser) + end);
  for (CppSQLite3Query rows = select.execQuery(); !rows.eof(); rows.nextRow()) visit(rows);
}

/// Calls `visit` with every source of a table that is not to be kept and the number of its
/// rows.
template <class Visit>
void ForEachGone(const std::string& file, const char* table, const std::set<std::string>& kept,
                 Visit visit) {
  ForEachRow(file, table, "variableSource, count(*)", " group by variableSource",
             [&](const CppSQLite3Query& row) {
               const std::string source(row.getStringField(0));
               if (!kept.contains(source)) visit(source, row.getInt64Field(1));
             });
}

/// Removes the histories of sources of which nothing has been learned, so that they have
/// no rule to be found by.
void RemoveHistoriesAlone(KSDataManagerSql& manager, const std::string& domainId,
                          const std::set<std::string>& kept) {
  std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>> items;
  ForEachRow(DomainDatabase(kDbObjectHistory, domainId), "KSObjectHistory",
             "variableSource, deviceName, interfaceValue, param, variableName", "",
             [&](const CppSQLite3Query& row) {
               if (kept.contains(std::string(row.getStringField(0)))) return;
               auto object = std::make_shared<ObjectDefine>();
               object->deviceName = row.getStringField(1);
               object->interfaceValue = row.getStringField(2);
               auto definition = std::make_shared<RuleDefinitionData>();
               definition->variableSource = row.getStringField(0);
               definition->variableParam = row.getStringField(3);
               definition->variableName = row.getStringField(4);
               definition->variableSourceType = kVariableSourceParser;
               items.emplace_back(std::move(object), std::move(definition));
             });
  if (!items.empty()) manager.RemoveRuleHistoryDatas(items);
}

}  // namespace

GoneSources FindGoneSources(const std::string& domainId, const std::set<std::string>& kept) {
  GoneSources found;
  ForEachGone(DomainDatabase(kDbObjectRule, domainId), "KSObjectRule", kept,
              [&](const std::string& source, std::int64_t count) { found[source].rules = count; });
  ForEachGone(
      DomainDatabase(kDbObjectHistory, domainId), "KSObjectHistory", kept,
      [&](const std::string& source, std::int64_t count) { found[source].histories = count; });
  return found;
}

bool RemoveGoneSources(const std::string& domainId, const std::set<std::string>& kept) {
  const auto failures = [] { return GetFailedWriteCount() + GetFailedReadCount(); };
  const auto manager = KSDomainDataManager::Instance()->GetKSDataManager(domainId);
  const std::uint64_t before = failures();
  manager->RemoveRuleDefinitionNoExistSource({kept.begin(), kept.end()}, kVariableSourceParser);
  if (failures() != before) return false;
  RemoveHistoriesAlone(*manager, domainId, kept);
  return failures() == before;
}

}  // namespace keelstone
