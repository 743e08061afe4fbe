#ifndef KEELSTONE_STORAGE_TABLES_ROW_STREAM_H
#define KEELSTONE_STORAGE_TABLES_ROW_STREAM_H

#include <cstdint>
#include <string>

#include "keelstone/cppsqlite3.h"

struct sqlite3_context;

namespace keelstone {

/// Takes the value of one column. Texts are not copied: they stay as they are until the
/// stream goes to its next row.
class ColumnValue {
 public:
  explicit ColumnValue(sqlite3_context* context) noexcept : context_(context) {}
  void Text(const std::string& text) const noexcept;
  void Number(std::int32_t number) const noexcept;

 private:
  sqlite3_context* context_;
};

/// Rows in memory that SQLite reads as a table, one after the other. One thread.
class RowStream {
 public:
  RowStream() = default;
  RowStream(const RowStream&) = delete;
  RowStream& operator=(const RowStream&) = delete;
  virtual ~RowStream() = default;

  /// The names of the columns, separated by commas.
  virtual const char* Columns() const noexcept = 0;
  /// Whether it stands on a row, and not behind the last.
  virtual bool HasRow() const noexcept = 0;
  /// Goes to the next row. May throw, which ends the writing.
  virtual void Next() = 0;
  /// Hands out a column of the row, counted from 0.
  virtual void Answer(int column, ColumnValue value) const noexcept = 0;
};

/// Writes the rows that `stream` has left to `table`. A row whose key is there already
/// takes the columns named in `updated` ("a=excluded.a,b=…") and leaves the key, and so
/// every index of keys, alone. RowBatch::kRows rows are one statement: bound and run row by
/// row, more time would go into beginning and ending statements than into writing.
/// `rowsATransaction` as in RowBatch. Throws CppSQLite3Exception and what `stream` throws.
void UpsertRows(CppSQLite3DB& db, const std::string& table, const char* updated,
                int rowsATransaction, RowStream& stream);

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_ROW_STREAM_H
