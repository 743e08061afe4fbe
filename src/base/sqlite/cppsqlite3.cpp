#include "keelstone/cppsqlite3.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "base/text/strings.h"
#include "keelstone/filesystem.h"
#include "keelstone/ini_reader.h"

namespace keelstone {

namespace {

[[noreturn]] void Fail(int code, const char* operation, const char* reason,
                       const std::string& file = {}) {
  throw CppSQLite3Exception(code, std::string(operation) + ": " + reason, file);
}

std::string FileOf(sqlite3* db, const char* schema = "main") {
  const char* const file = db != nullptr ? sqlite3_db_filename(db, schema) : nullptr;
  return file != nullptr ? file : "";
}

[[noreturn]] void Fail(sqlite3* db, const char* operation) {
  Fail(sqlite3_extended_errcode(db), operation, sqlite3_errmsg(db), FileOf(db));
}

/// Throws unless `code`, the answer of a call on `statement`, is SQLITE_OK.
void Check(int code, sqlite3_stmt* statement, const char* operation) {
  if (code == SQLITE_OK) return;
  if (statement == nullptr) Fail(code, operation, "the statement is finalised");
  // The connection's text belongs to its last failed call, which a refused parameter
  // number or a misuse is not always.
  sqlite3* const db = sqlite3_db_handle(statement);
  const bool isLast = (sqlite3_extended_errcode(db) & 0xFF) == (code & 0xFF);
  Fail(code, operation, isLast ? sqlite3_errmsg(db) : sqlite3_errstr(code), FileOf(db));
}

/// Takes one step; true on a row. At the end and on an error the statement is reset, so
/// that it holds no lock and can be bound and run again.
bool Step(sqlite3_stmt* statement, const char* operation) {
  const int code = sqlite3_step(statement);
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) {
    sqlite3_reset(statement);
    return false;
  }
  sqlite3* const db = sqlite3_db_handle(statement);
  const CppSQLite3Exception failure(code, std::string(operation) + ": " + sqlite3_errmsg(db),
                                    FileOf(db));
  sqlite3_reset(statement);
  throw failure;
}

void BindText(sqlite3_stmt* statement, int parameter, std::string_view text,
              sqlite3_destructor_type lifetime) {
  // Without an address SQLite would bind NULL.
  const char* const bytes = text.data() != nullptr ? text.data() : "";
  Check(statement == nullptr
            ? SQLITE_MISUSE
            : sqlite3_bind_text64(statement, parameter, bytes, text.size(), lifetime, SQLITE_UTF8),
        statement, "bind text");
}

/// Names of its own: in memory, and a nameless file.
bool IsNoPath(const std::string& file) { return file.empty() || file == ":memory:"; }

/// Makes an empty file with kFileRights; SQLite would make it readable by all. It is not
/// opened: closing it would drop the locks of this process's other connections. A link to
/// a missing file has that file made. What cannot be made, SQLite reports.
void MakeFile(const std::string& path) {
  if (::mknod(path.c_str(), S_IFREG | kFileRights, 0) == 0 || errno != EEXIST) return;
  boost::system::error_code error;
  const boost::filesystem::path link(path);
  const boost::filesystem::path target = boost::filesystem::read_symlink(link, error);
  if (!error) MakeFile(boost::filesystem::absolute(target, link.parent_path()).string());
}

/// Opening a pipe could wait for its other end, and SQLite tells of a folder only that it
/// cannot be opened.
void RequirePlainFile(const std::string& file, CppSQLite3DB::Mode mode) {
  if (IsNoPath(file)) return;
  struct stat status = {};
  if (::stat(file.c_str(), &status) == 0) {
    if (S_ISREG(status.st_mode)) return;
    Fail(SQLITE_CANTOPEN, "open",
         S_ISDIR(status.st_mode) ? "it is a folder" : "it is no plain file", file);
  }
  if (errno != ENOENT) {
    Fail(SQLITE_CANTOPEN, "open", std::generic_category().message(errno).c_str(), file);
  }
  if (mode == CppSQLite3DB::Mode::kCreate) MakeFile(file);
}

}  // namespace

CppSQLite3Exception::CppSQLite3Exception(int code, std::string message, std::string file)
    : code_(code), message_(std::move(message)), file_(std::move(file)) {}

// ---- Query

CppSQLite3Query::CppSQLite3Query(sqlite3_stmt* statement) : statement_(statement) {
  atEnd_ = !Step(statement_, "execQuery");
}

void CppSQLite3Query::nextRow() {
  if (atEnd_) return;
  atEnd_ = true;  // also when the step fails
  atEnd_ = !Step(statement_, "nextRow");
}

int CppSQLite3Query::numFields() const { return sqlite3_column_count(statement_); }

int CppSQLite3Query::fieldIndex(std::string_view name) const {
  const int fields = numFields();
  for (int field = 0; field < fields; ++field) {
    const char* const column = sqlite3_column_name(statement_, field);
    if (column != nullptr && name == column) return field;
  }
  throw CppSQLite3Exception(SQLITE_RANGE, "fieldIndex: no column named " + std::string(name),
                            FileOf(sqlite3_db_handle(statement_)));
}

std::string CppSQLite3Query::fieldName(int field) const {
  const char* const name = sqlite3_column_name(statement_, field);
  return name != nullptr ? name : "";
}

void CppSQLite3Query::Require(int field) const {
  if (atEnd_) Fail(SQLITE_MISUSE, "read field", "no more rows");
  if (field < 0 || field >= numFields()) Fail(SQLITE_RANGE, "read field", "no such column");
}

bool CppSQLite3Query::fieldIsNull(int field) const {
  Require(field);
  return sqlite3_column_type(statement_, field) == SQLITE_NULL;
}

int CppSQLite3Query::getIntField(int field, int nullValue) const {
  return fieldIsNull(field) ? nullValue : sqlite3_column_int(statement_, field);
}

int CppSQLite3Query::getIntField(std::string_view name, int nullValue) const {
  return getIntField(fieldIndex(name), nullValue);
}

std::int64_t CppSQLite3Query::getInt64Field(int field, std::int64_t nullValue) const {
  return fieldIsNull(field) ? nullValue : sqlite3_column_int64(statement_, field);
}

std::string_view CppSQLite3Query::getStringField(int field, std::string_view nullValue) const {
  Require(field);
  // The text first: asking for it may convert the value and change its length.
  const unsigned char* const bytes = sqlite3_column_text(statement_, field);
  if (bytes == nullptr) {
    if (sqlite3_column_type(statement_, field) == SQLITE_NULL) return nullValue;
    Fail(SQLITE_NOMEM, "read field", sqlite3_errstr(SQLITE_NOMEM));
  }
  const int size = sqlite3_column_bytes(statement_, field);
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

std::string_view CppSQLite3Query::getStringField(std::string_view name,
                                                 std::string_view nullValue) const {
  return getStringField(fieldIndex(name), nullValue);
}

// ---- Statement

CppSQLite3Statement::CppSQLite3Statement(CppSQLite3Statement&& other) noexcept
    : statement_(std::exchange(other.statement_, nullptr)) {}

CppSQLite3Statement& CppSQLite3Statement::operator=(CppSQLite3Statement&& other) noexcept {
  if (this != &other) {
    finalize();
    statement_ = std::exchange(other.statement_, nullptr);
  }
  return *this;
}

CppSQLite3Statement::~CppSQLite3Statement() { finalize(); }

void CppSQLite3Statement::bind(int parameter, std::string_view text) {
  BindText(statement_, parameter, text, SQLITE_TRANSIENT);
}

void CppSQLite3Statement::bindStatic(int parameter, std::string_view text) {
  BindText(statement_, parameter, text, SQLITE_STATIC);
}

void CppSQLite3Statement::bind(int parameter, int value) {
  bind(parameter, static_cast<std::int64_t>(value));
}

void CppSQLite3Statement::bind(int parameter, std::int64_t value) {
  Check(sqlite3_bind_int64(statement_, parameter, value), statement_, "bind integer");
}

void CppSQLite3Statement::bindNull(int parameter) {
  Check(sqlite3_bind_null(statement_, parameter), statement_, "bind null");
}

int CppSQLite3Statement::execDML() {
  if (statement_ == nullptr) Fail(SQLITE_MISUSE, "execDML", "the statement is finalised");
  reset();
  sqlite3* const db = sqlite3_db_handle(statement_);
  const sqlite3_int64 before = sqlite3_total_changes64(db);
  while (Step(statement_, "execDML")) {
  }
  // Statements that change no rows leave SQLite's count as it was.
  return sqlite3_total_changes64(db) == before ? 0 : sqlite3_changes(db);
}

CppSQLite3Query CppSQLite3Statement::execQuery() {
  if (statement_ == nullptr) Fail(SQLITE_MISUSE, "execQuery", "the statement is finalised");
  reset();
  return CppSQLite3Query(statement_);
}

void CppSQLite3Statement::reset() {
  // The answer repeats the error of the last step, which has been thrown already.
  sqlite3_reset(statement_);
}

void CppSQLite3Statement::finalize() noexcept {
  sqlite3_finalize(std::exchange(statement_, nullptr));
}

// ---- DB

CppSQLite3DB::CppSQLite3DB()
    : busyTimeoutMs_(std::clamp(IniReader::GetInt("Keelstone", "BusyTimeout", kBusyTimeoutMs,
                                                  "fix_frontserver.ini", "frontserver.ini"),
                                0, kMaxBusyTimeoutMs)) {}

CppSQLite3DB::~CppSQLite3DB() { close(); }

void CppSQLite3DB::open(const std::string& file, Mode mode) {
  close();
  RequirePlainFile(file, mode);
  int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  switch (mode) {
    case Mode::kReadOnly:
      flags |= SQLITE_OPEN_READONLY;
      break;
    case Mode::kReadWrite:
      flags |= SQLITE_OPEN_READWRITE;
      break;
    case Mode::kCreate:
      flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
      break;
  }
  if (sqlite3_open_v2(file.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
    const CppSQLite3Exception failure(
        db_ != nullptr ? sqlite3_extended_errcode(db_) : SQLITE_NOMEM,
        std::string("open: ") + (db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory"), file);
    close();
    throw failure;
  }
  sqlite3_busy_timeout(db_, busyTimeoutMs_);
  // Statements quote texts with double quotes: what names no column is a literal,
  // however the library was built.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DML, 1, nullptr);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DDL, 1, nullptr);
  // A file may come from elsewhere: what its schema says is not trusted.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
}

void CppSQLite3DB::attach(const std::string& file, const std::string& schema, Mode mode) {
  RequireOpen();
  RequirePlainFile(file, mode);
  CppSQLite3Statement statement = compileStatement("attach ?1 as " + schema);
  statement.bind(1, file);
  try {
    statement.execDML();
  } catch (const CppSQLite3Exception& error) {
    throw CppSQLite3Exception(error.errorCode(), error.errorMessage(), file);
  }
}

void CppSQLite3DB::close() noexcept {
  // Statements that still live keep the connection until the last is finalised.
  sqlite3_close_v2(std::exchange(db_, nullptr));
}

void CppSQLite3DB::RequireOpen() const {
  if (db_ == nullptr) Fail(SQLITE_MISUSE, "use of a database", "it is not open");
}

bool CppSQLite3DB::tableExists(const std::string& table, const std::string& schema) {
  RequireOpen();
  // Finds it in the schema that the next statement needs anyway; what it does not find may
  // also be a schema that cannot be read, which the query tells.
  if (sqlite3_table_column_metadata(db_, schema.c_str(), table.c_str(), nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr) == SQLITE_OK) {
    return true;
  }
  CppSQLite3Statement statement =
      compileStatement("select 1 from " + schema +
                       ".sqlite_master where type = 'table' and name = ?1 collate nocase");
  statement.bind(1, table);
  return !statement.execQuery().eof();
}

void CppSQLite3DB::requireKnownSchema(const std::string& schema) {
  CppSQLite3Statement statement = compileStatement("pragma " + schema + ".user_version");
  const int version = statement.execQuery().getIntField(0);
  if (version <= kSchemaVersion) return;
  Fail(SQLITE_SCHEMA, "schema",
       ("its version " + std::to_string(version) + " is newer than " +
        std::to_string(kSchemaVersion) + ", the newest that is known here")
           .c_str(),
       FileOf(db_, schema.c_str()));
}

int CppSQLite3DB::execDML(const std::string& sql) { return compileStatement(sql).execDML(); }

CppSQLite3Statement CppSQLite3DB::compileStatement(const std::string& sql) {
  RequireOpen();
  constexpr auto kMaxLength = static_cast<std::size_t>(std::numeric_limits<int>::max()) - 1;
  if (sql.size() > kMaxLength) Fail(SQLITE_TOOBIG, "compile", sqlite3_errstr(SQLITE_TOOBIG));
  sqlite3_stmt* compiled = nullptr;
  const char* rest = nullptr;
  // The length includes the terminating NUL, which saves SQLite a copy.
  const int length = static_cast<int>(sql.size()) + 1;
  if (sqlite3_prepare_v2(db_, sql.c_str(), length, &compiled, &rest) != SQLITE_OK) {
    Fail(db_, "compile");
  }
  CppSQLite3Statement statement(compiled);
  if (compiled == nullptr) Fail(SQLITE_MISUSE, "compile", "no statement in the text");
  if (!Trim(rest, " \t\r\n;").empty()) {
    Fail(SQLITE_MISUSE, "compile", "more than one statement in the text");
  }
  return statement;
}

std::string CppSQLite3DB::fileName() const { return FileOf(db_); }

std::string CppSQLite3DB::errorMessage() const {
  return db_ != nullptr ? sqlite3_errmsg(db_) : "the database is not open";
}

}  // namespace keelstone
