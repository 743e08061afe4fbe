#ifndef KEELSTONE_CPPSQLITE3_H
#define KEELSTONE_CPPSQLITE3_H

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "keelstone/export.h"

struct sqlite3;
struct sqlite3_stmt;

namespace keelstone {

/// A failed call of SQLite: its result code, "what was done: why it failed", and the
/// database file concerned ("" when none was open).
class KEELSTONE_EXPORT CppSQLite3Exception : public std::exception {
 public:
  CppSQLite3Exception(int code, std::string message, std::string file = {});
  int errorCode() const noexcept { return code_; }
  const std::string& file() const noexcept { return file_; }
  const char* errorMessage() const noexcept { return message_.c_str(); }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  int code_;
  std::string message_;
  std::string file_;
};

/// The rows of a running SELECT, standing on one row or at the end. It borrows its
/// statement, which must outlive it. One thread.
class KEELSTONE_EXPORT CppSQLite3Query {
 public:
  bool eof() const noexcept { return atEnd_; }
  void nextRow();
  int numFields() const;
  /// Position of a column by its name; CppSQLite3Exception when there is none.
  int fieldIndex(std::string_view name) const;
  bool fieldIsNull(int field) const;
  /// The name of a column; "" when there is none.
  std::string fieldName(int field) const;
  /// The value of the current row's column; `nullValue` for NULL.
  int getIntField(int field, int nullValue = 0) const;
  int getIntField(std::string_view name, int nullValue = 0) const;
  std::int64_t getInt64Field(int field, std::int64_t nullValue = 0) const;
  /// The bytes as stored, NUL included; valid until nextRow.
  std::string_view getStringField(int field, std::string_view nullValue = {}) const;
  std::string_view getStringField(std::string_view name, std::string_view nullValue = {}) const;

 private:
  friend class CppSQLite3Statement;
  explicit CppSQLite3Query(sqlite3_stmt* statement);
  void Require(int field) const;

  sqlite3_stmt* statement_;
  bool atEnd_ = false;
};

/// A compiled statement; finalised by its destructor. Parameters count from 1. One
/// thread; the database must stay open as long as it lives.
class KEELSTONE_EXPORT CppSQLite3Statement {
 public:
  CppSQLite3Statement(CppSQLite3Statement&& other) noexcept;
  CppSQLite3Statement& operator=(CppSQLite3Statement&& other) noexcept;
  ~CppSQLite3Statement();

  /// Binds text of any bytes; the empty text is bound as text, never as NULL. SQLite
  /// takes a copy.
  void bind(int parameter, std::string_view text);
  void bind(int parameter, const char* text) { bind(parameter, std::string_view(text)); }
  void bind(int parameter, int value);
  void bind(int parameter, std::int64_t value);
  void bindNull(int parameter);
  /// The same without a copy: the text must stay as it is until the statement is reset,
  /// bound anew or finalised.
  void bindStatic(int parameter, std::string_view text);

  /// Runs the statement to its end; the number of rows it changed.
  int execDML();
  /// Starts a SELECT; stands on the first row.
  CppSQLite3Query execQuery();
  /// Makes the statement ready to run again; bindings stay.
  void reset();
  void finalize() noexcept;

 private:
  friend class CppSQLite3DB;
  explicit CppSQLite3Statement(sqlite3_stmt* statement) noexcept : statement_(statement) {}

  sqlite3_stmt* statement_;
};

/// One connection to a database file. Errors throw CppSQLite3Exception; the destructor
/// closes. One thread at a time.
class KEELSTONE_EXPORT CppSQLite3DB {
 public:
  /// Looks up how long to wait for other processes, and may log a fault of the ini file:
  /// make it before taking a lock.
  CppSQLite3DB();
  CppSQLite3DB(const CppSQLite3DB&) = delete;
  CppSQLite3DB& operator=(const CppSQLite3DB&) = delete;
  ~CppSQLite3DB();

  /// How a file is opened. kReadWrite for reading, too, where what a crash has left is to
  /// be rolled back: kReadOnly refuses such a file. It reads one that may not be written.
  enum class Mode { kReadOnly, kReadWrite, kCreate };

  /// Opens the file. kCreate makes it when it is missing, readable and writable by its
  /// owner, readable by its group, and by nobody else. What is there and no plain file (a
  /// folder, a pipe) is refused unopened. A file that another process is writing is waited
  /// for, at most the milliseconds "BusyTimeout" of section "Keelstone" of the ini files
  /// per statement.
  void open(const std::string& file, Mode mode = Mode::kCreate);
  /// Adds a second file to the open one under the name `schema`; a transaction then spans
  /// both. kCreate makes it when it is missing; else it is opened as the first one was.
  void attach(const std::string& file, const std::string& schema, Mode mode = Mode::kCreate);
  bool isOpen() const noexcept { return db_ != nullptr; }
  void close() noexcept;

  bool tableExists(const std::string& table, const std::string& schema = "main");
  /// Runs one statement without result rows; the number of rows it changed.
  int execDML(const std::string& sql);
  CppSQLite3Statement compileStatement(const std::string& sql);
  /// The text of the last error.
  std::string errorMessage() const;
  sqlite3* handle() noexcept { return db_; }
  /// The path of the file, links resolved; empty when none is open.
  std::string fileName() const;

  /// Throws when the file says ("pragma user_version") that its tables are laid out in a
  /// newer way than is known here. Files that say nothing (0) are of the first.
  void requireKnownSchema(const std::string& schema = "main");

  static constexpr int kSchemaVersion = 1;          // the newest that is known
  static constexpr int kBusyTimeoutMs = 10000;      // when the ini files say nothing
  static constexpr int kMaxBusyTimeoutMs = 600000;  // whatever they say

 private:
  void RequireOpen() const;

  sqlite3* db_ = nullptr;
  int busyTimeoutMs_;
};

}  // namespace keelstone

#endif  // KEELSTONE_CPPSQLITE3_H
