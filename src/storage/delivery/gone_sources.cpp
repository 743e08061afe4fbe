#include "keelstone/gone_sources.h"

#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_records.h"
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

/// Calls `visit` with every row that `select` gives of a table; a missing one has none. Why
/// it cannot be read.
template <class Visit>
std::string ForEachRow(const std::string& domainId, const TableOperation& operation,
                       const std::string& select, Visit visit) {
  TableFault fault;
  const TableOutcome outcome = TableFrame::RunAt(
      domainId, DomainDatabase(operation.dbType, domainId), operation,
      [&](CppSQLite3DB& db) {
        auto statement = db.compileStatement(select);
        for (auto rows = statement.execQuery(); !rows.eof(); rows.nextRow()) visit(rows);
      },
      &fault);
  return IsFailure(outcome) ? fault.Text() : std::string();
}

std::string CountSources(const std::string& domainId, const TableOperation& operation,
                         std::int64_t SourceRows::* number, SourceCounts& counts) {
  return ForEachRow(
      domainId, operation,
      std::string("select variableSource, count(*) from ") + operation.table + kCountSources,
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
bool RemoveRows(const std::string& domainId, const TableOperation& operation,
                const std::set<std::string>& sources) {
  const auto remove = [&](CppSQLite3DB& db) {
    db.execDML("pragma temp_store = memory;");
    db.execDML(kMakeGone);
    auto insert = db.compileStatement(kInsertGone);
    for (const std::string& source : sources) {
      insert.bindStatic(1, source);
      insert.execDML();
      insert.reset();
    }
    insert.finalize();
    db.execDML(std::string("delete from main.") + operation.table + kDeleteGone);
    Shrink(db);
  };
  return !IsFailure(
      TableFrame::RunAt(domainId, DomainDatabase(operation.dbType, domainId), operation, remove));
}

}  // namespace

std::string StoredSources(const std::string& domainId, SourceCounts& counts) {
  constexpr const char* kFunction = "StoredSources";
  counts.clear();
  std::string fault = CountSources(domainId, RuleOperation(kFunction), &SourceRows::rules, counts);
  if (!fault.empty()) return fault;
  return CountSources(domainId, HistoryOperation(kFunction), &SourceRows::histories, counts);
}

std::string DefinedSources(const std::string& domainId, std::set<std::string>& sources) {
  constexpr TableOperation kDefined{.table = "KSVariableRule",
                                    .dbType = kDbVariableRule,
                                    .function = "DefinedSources",
                                    .source = "gone_sources"};
  sources.clear();
  return ForEachRow(domainId, kDefined, "select data from KSVariableRule",
                    [&](const CppSQLite3Query& row) {
                      JsonValue definition;
                      if (!JsonReader::Parse(row.getStringField(0), definition)) return;
                      const JsonValue* const source = definition.find("variableSource");
                      if (source != nullptr && source->isString()) {
                        sources.insert(source->stringRef());
                      }
                    });
}

bool RemoveSources(const std::string& domainId, const std::set<std::string>& sources) {
  constexpr const char* kFunction = "RemoveSources";
  if (sources.empty()) return true;
  return RemoveRows(domainId, RuleOperation(kFunction, TableAccess::kChange), sources) &&
         RemoveRows(domainId, HistoryOperation(kFunction, TableAccess::kChange), sources);
}

}  // namespace keelstone
