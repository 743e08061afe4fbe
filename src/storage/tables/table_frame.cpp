#include "storage/tables/table_frame.h"

#include <dirent.h>
#include <unistd.h>

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "base/text/strings.h"
#include "keelstone/filesystem.h"
#include "keelstone/first_failure.h"
#include "keelstone/logger.h"
#include "keelstone/resource_adaptor.h"
#include "storage/load/unit_changes.h"

namespace keelstone {

namespace {

constexpr const char* kBegin = "begin transaction;";
constexpr const char* kBeginForWriting = "begin immediate transaction;";
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

// Faults that pass, or that concern the rows as much as the file: written one after the
// other the two tables would fare no better, and one might end ahead of the other.
bool MayPass(int code) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
    case SQLITE_INTERRUPT:
    case SQLITE_TOOBIG:
      return true;
    default:
      return false;
  }
}

std::string JournalMode(CppSQLite3DB& db, const std::string& pragma) {
  auto statement = db.compileStatement(pragma);
  return std::string(statement.execQuery().getStringField(0));
}

// With a write-ahead log each file would be committed for itself. One that somebody uses
// meanwhile stays as it is.
bool HasRollbackJournal(CppSQLite3DB& db, const std::string& schema) {
  const std::string pragma = "pragma " + schema + ".journal_mode";
  if (JournalMode(db, pragma) != "wal") return true;
  try {
    return JournalMode(db, pragma + "=delete") == "delete";
  } catch (const CppSQLite3Exception&) {
    return false;
  }
}

bool IsSuperJournal(std::string_view name, std::string_view database) {
  constexpr std::string_view kMark = "-mj";
  constexpr std::size_t kDigits = 9;
  return name.size() == database.size() + kMark.size() + kDigits && name.starts_with(database) &&
         name.substr(database.size()).starts_with(kMark);
}

// Whether nobody needs a super-journal: of the journals that it lists, each name ended by a
// NUL, there are none but those of the two files that are held.
bool IsAbandoned(const std::string& superJournal, const std::string& first,
                 const std::string& second) {
  std::ifstream file(superJournal, std::ios::binary);
  if (!file) return false;
  std::string name;
  while (std::getline(file, name, '\0')) {
    if (name != first && name != second && PathError(name) != ENOENT) return false;
  }
  return true;
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

// A commit over two files that broke off while it began leaves the list of its journals
// behind, which nobody else would remove. Called with both files held for writing: SQLite has
// rolled back by then what their journals held, and no other commit over them runs.
void RemoveAbandonedSuperJournals(const std::string& database, const std::string& second) {
  const std::size_t slash = database.rfind('/') + 1;
  const std::string folder = database.substr(0, slash);
  const std::string own = database.substr(slash);
  const std::string beside = folder + second.substr(second.rfind('/') + 1);
  constexpr const char* kJournal = "-journal";
  // Not by the standard library's iterator, which ends the process when memory is short.
  const std::unique_ptr<DIR, CloseFolder> entries(::opendir(folder.c_str()));
  if (entries == nullptr) return;
  while (const dirent* const entry = ::readdir(entries.get())) {
    const char* const name = static_cast<const char*>(entry->d_name);
    if (!IsSuperJournal(name, own)) continue;
    const std::string path = folder + name;
    if (IsAbandoned(path, database + kJournal, beside + kJournal)) ::unlink(path.c_str());
  }
}

void MakeTable(CppSQLite3DB& db, const std::string& schema, const std::string& file,
               const TableOperation& operation, DeferredLog& log) {
  const std::string where = std::string(operation.table) + " table in " + file + " db";
  log.Add(kLogNotice, __LINE__, "No ", where.c_str(), ".");
  db.execDML(FormatPositional(operation.createSql, {schema + "." + operation.table}));
  log.Add(kLogNotice, __LINE__, "", where.c_str(), " has been created.");
}

void MakeIndex(CppSQLite3DB& db, const char* schema, const TableOperation& operation) {
  if (operation.indexSql == nullptr) return;
  db.execDML(FormatPositional(operation.indexSql, {schema}));
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

TableOutcome TableFrame::RunTogether(const CKSDBOperateBase& table, const TableOperation& first,
                                     const TableOperation& second, const Body& body) {
  DeferredLog log(first.function, first.source);  // goes after the locks
  const std::string domainId = table.GetDomainId();
  const Guid domain = GuidFromText(domainId);
  FSResourceAdaptor& records = FSResourceAdaptor::Instance();
  const auto firstRecord = records.RegisterTable(domain, first.dbType, first.dbType);
  const auto secondRecord = records.RegisterTable(domain, second.dbType, second.dbType);
  if (firstRecord == nullptr || secondRecord == nullptr) return TableOutcome::kNoTable;
  CppSQLite3DB db;
  TableOutcome outcome = TableOutcome::kFailed;
  {
    const MutexLock lock(firstRecord->mutex);
    const MutexLock lockSecond(secondRecord->mutex);
    outcome =
        RunBothLocked(db, table.fileSystem_->GetDBFile(first.dbType, domainId), first,
                      table.fileSystem_->GetDBFile(second.dbType, domainId), second, body, log);
    db.close();
  }
  if (outcome == TableOutcome::kFailed) {
    ++failedHere;
    CountFailedWrite();
  }
  return outcome;
}

TableOutcome TableFrame::RunBothLocked(CppSQLite3DB& db, const std::string& firstFile,
                                       const TableOperation& first, const std::string& secondFile,
                                       const TableOperation& second, const Body& body,
                                       DeferredLog& log) {
  if (PathError(firstFile) != 0) return TableOutcome::kNoTable;
  TableOutcome outcome = TableOutcome::kNoTable;
  const auto work = [&] {
    db.open(firstFile, CppSQLite3DB::Mode::kReadWrite);
    db.requireKnownSchema();
    if (!db.tableExists(first.table)) return;
    db.attach(secondFile, kSecond);
    db.requireKnownSchema(kSecond);
    if (!HasRollbackJournal(db, "main") || !HasRollbackJournal(db, kSecond)) return;
    db.execDML(kBeginForWriting);
    RemoveAbandonedSuperJournals(db.fileName(), secondFile);
    DeferredLog madeLog(second.function, second.source);
    if (!db.tableExists(second.table, kSecond)) MakeTable(db, kSecond, secondFile, second, madeLog);
    MakeIndex(db, "main", first);
    MakeIndex(db, kSecond, second);
    body(db);
    db.execDML(kCommit);
    outcome = TableOutcome::kRan;
  };
  const bool done = Attempt(db, first, log, [&] {
    try {
      work();
    } catch (const CppSQLite3Exception& error) {
      if (MayPass(error.errorCode())) throw;
      RollBack(db);
    }
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
  if (!db.tableExists(operation.table)) {
    if (operation.createSql == nullptr) return false;
    MakeTable(db, "main", file, operation, log);
  }
  if (create) MakeIndex(db, "main", operation);
  return true;
}

void RowBatch::BeforeRow() {
  if (rows_ == 0 && limit_ != kCallers) db_.execDML(kBegin);
}

void RowBatch::AfterRow() {
  if (limit_ == kCallers || ++rows_ < limit_) return;
  db_.execDML(kCommit);
  rows_ = 0;
}

void RowBatch::Finish() {
  if (rows_ >= 1) db_.execDML(kCommit);
  rows_ = 0;
}

}  // namespace keelstone
