#include "storage/tables/row_stream.h"

#include <sqlite3.h>

#include <exception>
#include <new>

#include "base/text/strings.h"
#include "storage/tables/row_batch.h"

namespace keelstone {

namespace {

// Called as a function, a table of this name in the file is an error and not taken for it.
constexpr const char* kStreamName = "keelstone_row_stream";
constexpr const char* kDeclare = "create table rows ({0})";
// "where true" tells the parser that "on conflict" does not belong to a join.
constexpr const char* kUpsert =
    "insert into {0} ({1}) select {1} from {2}() where true on conflict do update set {3}";
// What a statement would undo when it fails is kept in memory, not in a file: it is bounded
// by the rows of one statement.
constexpr const char* kKeepInMemory = "pragma temp_store=memory";

// The rows of a stream that one statement reads.
struct Reading {
  RowStream& stream;
  int left = 0;
  std::int64_t row = 0;
  std::exception_ptr failure = nullptr;  // what the stream threw; no exception passes SQLite

  bool AtEnd() const noexcept { return left == 0 || !stream.HasRow(); }
  int Advance() noexcept {
    --left;
    ++row;
    try {
      stream.Next();
      return SQLITE_OK;
    } catch (...) {
      failure = std::current_exception();
      return SQLITE_ABORT;
    }
  }
};

struct StreamTable : sqlite3_vtab {
  Reading* reading = nullptr;
};

// A table is read by one cursor at a time, so its place is the reading's.
struct StreamCursor : sqlite3_vtab_cursor {
  Reading* reading = nullptr;
};

Reading& ReadingOf(sqlite3_vtab_cursor* cursor) noexcept {
  return *static_cast<StreamCursor*>(cursor)->reading;
}

int Connect(sqlite3* db, void* reading, int /*count*/, const char* const* /*arguments*/,
            sqlite3_vtab** out, char** /*error*/) noexcept {
  auto* const context = static_cast<Reading*>(reading);
  try {
    const std::string declaration = FormatPositional(kDeclare, {context->stream.Columns()});
    const int code = sqlite3_declare_vtab(db, declaration.c_str());
    if (code != SQLITE_OK) return code;
    auto* const table = new StreamTable;
    table->reading = context;
    *out = table;
    return SQLITE_OK;
  } catch (const std::exception&) {
    return SQLITE_NOMEM;
  }
}

int Disconnect(sqlite3_vtab* table) noexcept {
  delete static_cast<StreamTable*>(table);
  return SQLITE_OK;
}

// All rows in their order is the one way to read them.
int PlanReading(sqlite3_vtab* /*table*/, sqlite3_index_info* plan) noexcept {
  plan->estimatedCost = 1;
  return SQLITE_OK;
}

int OpenCursor(sqlite3_vtab* table, sqlite3_vtab_cursor** out) noexcept {
  auto* const cursor = new (std::nothrow) StreamCursor;
  if (cursor == nullptr) return SQLITE_NOMEM;
  cursor->reading = static_cast<StreamTable*>(table)->reading;
  *out = cursor;
  return SQLITE_OK;
}

int CloseCursor(sqlite3_vtab_cursor* cursor) noexcept {
  delete static_cast<StreamCursor*>(cursor);
  return SQLITE_OK;
}

int BeginReading(sqlite3_vtab_cursor* cursor, int /*plan*/, const char* /*text*/, int /*count*/,
                 sqlite3_value** /*arguments*/) noexcept {
  ReadingOf(cursor).left = RowBatch::kRows;
  return SQLITE_OK;
}

int NextRow(sqlite3_vtab_cursor* cursor) noexcept { return ReadingOf(cursor).Advance(); }

int IsAtEnd(sqlite3_vtab_cursor* cursor) noexcept { return ReadingOf(cursor).AtEnd() ? 1 : 0; }

int AnswerColumn(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int column) noexcept {
  ReadingOf(cursor).stream.Answer(column, ColumnValue(context));
  return SQLITE_OK;
}

int AnswerRow(sqlite3_vtab_cursor* cursor, sqlite3_int64* row) noexcept {
  *row = ReadingOf(cursor).row;
  return SQLITE_OK;
}

// A table that is there without being made: there is no xCreate.
sqlite3_module MakeModule() noexcept {
  sqlite3_module module{};
  module.xConnect = Connect;
  module.xBestIndex = PlanReading;
  module.xDisconnect = Disconnect;
  module.xOpen = OpenCursor;
  module.xClose = CloseCursor;
  module.xFilter = BeginReading;
  module.xNext = NextRow;
  module.xEof = IsAtEnd;
  module.xColumn = AnswerColumn;
  module.xRowid = AnswerRow;
  return module;
}

// Shows a reading to a connection as a table, as long as it lives.
class ShownRows {
 public:
  ShownRows(CppSQLite3DB& db, Reading& reading) : db_(db) {
    static const sqlite3_module kModule = MakeModule();
    const int code =
        sqlite3_create_module_v2(db.handle(), kStreamName, &kModule, &reading, nullptr);
    if (code == SQLITE_OK) return;
    throw CppSQLite3Exception(code, std::string("show rows: ") + sqlite3_errstr(code),
                              db.fileName());
  }
  ShownRows(const ShownRows&) = delete;
  ShownRows& operator=(const ShownRows&) = delete;
  ~ShownRows() { sqlite3_create_module_v2(db_.handle(), kStreamName, nullptr, nullptr, nullptr); }

 private:
  CppSQLite3DB& db_;
};

}  // namespace

void ColumnValue::Text(const std::string& text) const noexcept {
  sqlite3_result_text64(context_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void ColumnValue::Number(std::int32_t number) const noexcept {
  sqlite3_result_int(context_, number);
}

void UpsertRows(CppSQLite3DB& db, const std::string& table, const char* updated,
                int rowsATransaction, RowStream& stream) {
  if (!stream.HasRow()) return;
  db.execDML(kKeepInMemory);
  Reading reading{stream};
  const ShownRows shown(db, reading);
  auto statement = db.compileStatement(
      FormatPositional(kUpsert, {table, stream.Columns(), kStreamName, updated}));
  RowBatch batch(db, rowsATransaction);
  while (stream.HasRow()) {
    batch.BeforeRow();
    try {
      statement.execDML();
    } catch (const CppSQLite3Exception&) {
      if (reading.failure != nullptr) std::rethrow_exception(reading.failure);
      throw;
    }
    batch.AfterRow(RowBatch::kRows);
  }
  batch.Finish();
}

}  // namespace keelstone
