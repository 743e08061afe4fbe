#include "keelstone/gone_sources.h"

#include <cerrno>

#include "keelstone/cppsqlite3.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/json_reader.h"
#include "storage/tables/object_rule_schema.h"

namespace keelstone {

namespace {

constexpr const char* kCountSources =
    " where variableSourceType = 2 group by variableSource order by 1";
constexpr const char* kMakeGone = "create temp table gone (name TEXT PRIMARY KEY) without rowid";
constexpr const char* kInsertGone = "insert into temp.gone values (?)";
constexpr const char* kDeleteGone =
    " where variableSourceType = 2 and variableSource in (select name from temp.gone)";
static_assert(kVariableSourceParser == 2);

/// Calls `visit` with every row that `select` gives of a table. Throws
/// CppSQLite3Exception.
template <class Visit>
void ForEachRow(int dbType, const std::string& domainId, const char* table,
                const std::string& select, Visit visit) {
  const std::string file = DomainDatabase(dbType, domainId);
  if (PathError(file) == ENOENT) return;
  CppSQLite3DB db;
  db.open(file, CppSQLite3DB::Mode::kReadWrite);
  if (!db.tableExists(table)) return;
  CppSQLite3Statement statement = db.compileStatement(select);
  for (CppSQLite3Query rows = statement.execQuery(); !rows.eof(); rows.nextRow()) visit(rows);
}

void CountSources(int dbType, const std::string& domainId, const char* table,
                  std::int64_t SourceRows::* number, SourceCounts& counts) {
  ForEachRow(dbType, domainId, table,
             std::string("select variableSource, count(*) from ") + table + kCountSources,
             [&](const CppSQLite3Query& row) {
               counts[std::string(row.getStringField(0))].*number = row.getInt64Field(1);
             });
}

/// The rows are gone with the commit; the room that they took may come back later.
void Shrink(CppSQLite3DB& db) {
  try {
    db.execDML("VACUUM;");
  } catch (const CppSQLite3Exception&) {
    return;
  }
}

/// One statement over all sources: a scan of the table takes the same time for one as for
/// many, and either all of them go or none. Names are bound, never part of the text.
bool RemoveRows(const KSObjectRuleSql& table, const TableOperation& operation,
                const std::set<std::string>& sources) {
  return !IsFailure(TableFrame::Run(table, operation, [&](CppSQLite3DB& db) {
    db.execDML("pragma temp_store = memory;");
    db.execDML(kMakeGone);
    CppSQLite3Statement insert = db.compileStatement(kInsertGone);
    for (const std::string& source : sources) {
      insert.bindStatic(1, source);
      insert.execDML();
      insert.reset();
    }
    insert.finalize();
    db.execDML(std::string("delete from main.") + operation.table + kDeleteGone);
    Shrink(db);
  }));
}

}  // namespace

SourceCounts StoredSources(const std::string& domainId) {
  SourceCounts counts;
  CountSources(kDbObjectRule, domainId, kRuleTable, &SourceRows::rules, counts);
  CountSources(kDbObjectHistory, domainId, kHistoryTable, &SourceRows::histories, counts);
  return counts;
}

std::set<std::string> DefinedSources(const std::string& domainId) {
  std::set<std::string> sources;
  ForEachRow(kDbVariableRule, domainId, "KSVariableRule", "select data from KSVariableRule",
             [&](const CppSQLite3Query& row) {
               JsonValue definition;
               if (!JsonReader::Parse(row.getStringField(0), definition)) return;
               const JsonValue* const source = definition.find("variableSource");
               if (source != nullptr && source->isString()) sources.insert(source->stringRef());
             });
  return sources;
}

bool RemoveSources(const std::string& domainId, const std::set<std::string>& sources) {
  if (sources.empty()) return true;
  const auto table =
      KSDomainDataManager::Instance()->GetKSDataManager(domainId)->GetObjectRuleTable();
  constexpr const char* kFunction = "RemoveSources";
  return RemoveRows(*table, RuleOperation(kFunction, TableAccess::kChange), sources) &&
         RemoveRows(*table, HistoryOperation(kFunction, TableAccess::kChange), sources);
}

bool RemoveGoneSources(const std::string& domainId, const std::set<std::string>& kept) {
  std::set<std::string> gone;
  for (const auto& [source, rows] : StoredSources(domainId)) {
    if (!kept.contains(source)) gone.insert(source);
  }
  return RemoveSources(domainId, gone);
}

}  // namespace keelstone
