#ifndef KEELSTONE_STORAGE_TABLES_DATA_ROWS_H
#define KEELSTONE_STORAGE_TABLES_DATA_ROWS_H

#include <functional>
#include <string>

#include "keelstone/json_value.h"
#include "storage/tables/table_frame.h"

namespace keelstone {

/// Reads one row of a settings table; throws JsonError when a member is not what it should
/// be, naming it (see ReadMember).
using DataRowReader = std::function<void(const JsonValue&)>;

/// Hands the column "data" of every row of a settings table to `read`, as JSON objects in
/// the order of the table. A row whose text is no JSON object or that `read` refuses is
/// logged with its file, its number and the member, and passed over; those before and after
/// it count. Whatever else `read` throws ends the reading as kFailed.
TableOutcome ReadDataRows(const CKSDBOperateBase& table, const TableOperation& operation,
                          const DataRowReader& read);

/// What is wrong with the rows of a settings table in an open database: the first row that
/// ReadDataRows would pass over, and why. Empty when it would take all.
std::string DataRowFault(CppSQLite3DB& db, const char* table, const DataRowReader& read);

/// `read(value of the member)`; what that refuses is thrown on with the member's name.
template <class Read>
auto ReadMember(const JsonValue& row, const char* name, const Read& read) {
  try {
    return read(row[name]);
  } catch (const JsonError& error) {
    throw JsonError(std::string("its member \"") + name + "\": " + error.what());
  }
}

inline int IntMember(const JsonValue& row, const char* name) {
  return ReadMember(row, name, [](const JsonValue& value) { return value.asInt(); });
}
inline bool BoolMember(const JsonValue& row, const char* name) {
  return ReadMember(row, name, [](const JsonValue& value) { return value.asBool(); });
}
inline std::int64_t TimeMember(const JsonValue& row, const char* name) {
  return ReadMember(row, name, [](const JsonValue& value) { return value.asTime(); });
}
inline std::string TextMember(const JsonValue& row, const char* name) {
  return ReadMember(row, name, [](const JsonValue& value) { return value.asString(); });
}

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_DATA_ROWS_H
