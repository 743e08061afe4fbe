#include "storage/table_frame.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "platform/filesystem.h"
#include "platform/json_reader.h"
#include "platform/logger.h"
#include "platform/resource_adaptor.h"
#include "platform/strings.h"
#include "storage/first_failure.h"
#include "storage/unit_changes.h"

namespace keelstone {

namespace {

constexpr const char* kSelectAll = "select * from {0}";
constexpr const char* kBegin = "begin transaction;";
constexpr const char* kCommit = "commit transaction;";
constexpr const char* kRollback = "rollback transaction;";

std::atomic<std::uint64_t> failedWrites{0};
std::atomic<std::uint64_t> failedReads{0};
thread_local std::uint64_t failedHere = 0;

void RollBack(CppSQLite3DB& db) noexcept {
  if (!db.isOpen()) return;
  try {
    db.execDML(kRollback);
  } catch (const std::exception&) {
    return;  // no transaction was open, or SQLite has rolled back itself
  }
}

void LogFailure(const TableOperation& operation, DeferredLog& log) noexcept {
  const char* name = operation.failedName != nullptr ? operation.failedName : operation.table;
  log.Add(kLogError, __LINE__, "", name, " operate failed.");
}

std::optional<int> FindField(const CppSQLite3Query& query, const char* name) {
  try {
    return query.fieldIndex(name);
  } catch (const CppSQLite3Exception&) {
    return std::nullopt;
  }
}

}  // namespace

std::uint64_t GetFailedWriteCount() { return failedWrites.load(std::memory_order_acquire); }

std::uint64_t GetFailedReadCount() { return failedReads.load(std::memory_order_acquire); }

std::uint64_t FailedOperationsHere() noexcept { return failedHere; }

void CountFailedWrite() noexcept { failedWrites.fetch_add(1, std::memory_order_acq_rel); }

TableOutcome TableFrame::Run(const CKSDBOperateBase& table, const TableOperation& operation,
                             const Body& body) {
  DeferredLog log(operation.function, operation.source);  // goes after the lock
  TableOutcome outcome = TableOutcome::kFailed;
  const std::string domainId = table.GetDomainId();
  CppSQLite3DB db;
  const auto record = FSResourceAdaptor::Instance().RegisterTable(
      GuidFromText(domainId), operation.dbType, operation.dbType);
  if (record != nullptr) {
    const MutexLock lock(record->mutex);
    outcome = RunLocked(db, table.fileSystem_->GetDBFile(operation.dbType, domainId), operation,
                        body, log);
    db.close();
  } else {
    LogFailure(operation, log);
    NoteFailure({}, operation.function, "the lock record was refused");
  }
  if (IsFailure(outcome)) {
    ++failedHere;
    if (operation.access == TableAccess::kRead) {
      failedReads.fetch_add(1, std::memory_order_acq_rel);
    } else {
      CountFailedWrite();
    }
  }
  // Writers name the devices of their rows themselves.
  if (operation.access == TableAccess::kChange) NoteChangeOfAllUnits();
  return outcome;
}

TableOutcome TableFrame::RunLocked(CppSQLite3DB& db, const std::string& file,
                                   const TableOperation& operation, const Body& body,
                                   DeferredLog& log) {
  const int error = operation.access != TableAccess::kCreate ? PathError(file) : 0;
  if (error == ENOENT) return TableOutcome::kNoFile;
  if (error != 0) {
    log.Add(kLogError, __LINE__, file.c_str(), " cannot be reached: ", ::strerrordesc_np(error));
    NoteFailure(file, operation.function, ::strerrordesc_np(error));
    LogFailure(operation, log);
    return TableOutcome::kUnreachable;
  }
  TableOutcome outcome = TableOutcome::kNoTable;
  const bool done = Attempt(db, operation, log, [&] {
    if (!Open(db, file, operation, log)) return;
    body(db);
    outcome = TableOutcome::kRan;
  });
  return done ? outcome : TableOutcome::kFailed;
}

bool TableFrame::Attempt(CppSQLite3DB& db, const TableOperation& operation, DeferredLog& log,
                         const std::function<void()>& work) {
  try {
    work();
    return true;
  } catch (const CppSQLite3Exception& error) {
    log.Add(kLogError, __LINE__,
            {"sqlite exception in rw:", error.file(), error.file().empty() ? "" : ": ",
             error.errorMessage(), "."});
    NoteFailure(error.file(), operation.function, error.errorMessage());
  } catch (const std::exception& error) {
    log.Add(kLogError, __LINE__, "c++ exception in rw:", error.what(), ".");
    NoteFailure({}, operation.function, error.what());
  } catch (...) {
    log.Add(kLogError, __LINE__, "unkown error.", "", "");
    NoteFailure({}, operation.function, "an unknown error");
  }
  LogFailure(operation, log);
  RollBack(db);
  return false;
}

bool TableFrame::Open(CppSQLite3DB& db, const std::string& file, const TableOperation& operation,
                      DeferredLog& log) {
  const bool create = operation.access == TableAccess::kCreate;
  if (create && !MakeParentFolders(file)) {
    log.Add(kLogError, __LINE__, "The folder of ", file.c_str(), " cannot be made.");
  }
  // For reads too: only a connection that may write can roll back what a crash left.
  db.open(file, create ? CppSQLite3DB::Mode::kCreate : CppSQLite3DB::Mode::kReadWrite);
  db.requireKnownSchema();
  if (db.tableExists(operation.table)) return true;
  if (operation.createSql == nullptr) return false;
  const std::string where = std::string(operation.table) + " table in " + file + " db";
  log.Add(kLogNotice, __LINE__, "No ", where.c_str(), ".");
  db.execDML(FormatPositional(operation.createSql, {operation.table}));
  log.Add(kLogNotice, __LINE__, "", where.c_str(), " has been created.");
  return true;
}

TableOutcome ReadDataRows(const CKSDBOperateBase& table, const TableOperation& operation,
                          const std::function<void(const JsonValue&)>& row) {
  DeferredLog log(operation.function, operation.source);
  return TableFrame::Run(table, operation, [&](CppSQLite3DB& db) {
    auto statement = db.compileStatement(FormatPositional(kSelectAll, {operation.table}));
    auto query = statement.execQuery();
    const int data = query.fieldIndex("data");
    const std::optional<int> id = FindField(query, "id");
    for (std::int64_t place = 1; !query.eof(); query.nextRow(), ++place) {
      JsonValue value;
      if (JsonReader::Parse(query.getStringField(data), value) && value.isObject()) {
        row(value);
        continue;
      }
      const std::int64_t where = id ? query.getInt64Field(*id, place) : place;
      log.Add(kLogError, __LINE__, operation.table, (": row " + std::to_string(where)).c_str(),
              " holds no JSON object and is passed over.");
    }
  });
}

void RowBatch::BeforeRow() {
  if (rows_ == 0) db_.execDML(kBegin);
}

void RowBatch::AfterRow() {
  if (++rows_ < kRows) return;
  db_.execDML(kCommit);
  rows_ = 0;
}

void RowBatch::Finish() {
  if (rows_ >= 1) db_.execDML(kCommit);
  rows_ = 0;
}

}  // namespace keelstone
