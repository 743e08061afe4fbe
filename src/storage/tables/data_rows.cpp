#include "storage/tables/data_rows.h"

#include <optional>

#include "base/text/strings.h"
#include "keelstone/json_reader.h"
#include "keelstone/logger.h"

namespace keelstone {

namespace {

constexpr const char* kSelectAll = "select * from {0}";

std::optional<int> FindField(const CppSQLite3Query& query, const char* name) {
  try {
    return query.fieldIndex(name);
  } catch (const CppSQLite3Exception&) {
    return std::nullopt;
  }
}

/// Why `read` does not take the row; empty when it does.
std::string RefusalOf(std::string_view text, const DataRowReader& read) {
  JsonValue value;
  if (!JsonReader::Parse(text, value) || !value.isObject()) return "it holds no JSON object";
  try {
    read(value);
    return {};
  } catch (const JsonError& error) {
    return error.what();
  }
}

// Calls `refused` with the number of each row that `read` does not take, and why, until it
// answers false.
template <class Refused>
void WalkDataRows(CppSQLite3DB& db, const char* table, const DataRowReader& read,
                  const Refused& refused) {
  auto statement = db.compileStatement(FormatPositional(kSelectAll, {table}));
  auto query = statement.execQuery();
  const int data = query.fieldIndex("data");
  const std::optional<int> id = FindField(query, "id");
  for (std::int64_t place = 1; !query.eof(); query.nextRow(), ++place) {
    const std::string why = RefusalOf(query.getStringField(data), read);
    if (why.empty()) continue;
    if (!refused(id ? query.getInt64Field(*id, place) : place, why)) return;
  }
}

}  // namespace

TableOutcome ReadDataRows(const CKSDBOperateBase& table, const TableOperation& operation,
                          const DataRowReader& read) {
  DeferredLog log(operation.function, operation.source);
  return TableFrame::Run(table, operation, [&](CppSQLite3DB& db) {
    WalkDataRows(db, operation.table, read, [&](std::int64_t row, const std::string& why) {
      log.Add(kLogError, __LINE__,
              {db.fileName(), ": row ", std::to_string(row), " of ", operation.table,
               " is passed over: ", why, "."});
      return true;
    });
  });
}

std::string DataRowFault(CppSQLite3DB& db, const char* table, const DataRowReader& read) {
  std::string fault;
  WalkDataRows(db, table, read, [&](std::int64_t row, const std::string& why) {
    fault = "row " + std::to_string(row) + " of " + table + ": " + why;
    return false;
  });
  return fault;
}

}  // namespace keelstone
