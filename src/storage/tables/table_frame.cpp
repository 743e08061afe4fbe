#include "storage/tables/table_frame.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "base/text/strings.h"
#include "keelstone/filesystem.h"
#include "keelstone/logger.h"
#include "storage/load/unit_changes.h"
#include "storage/resource_adaptor.h"
#include "storage/tables/joint_commit.h"
#include "storage/tables/table_task.h"

namespace keelstone {

namespace {

// One reading from the look at the schema to the last row: the file is locked, and its journal
// looked for, once. It ends when the file is closed.
constexpr const char* kBeginReading = "begin transaction;";
constexpr const char* kBeginForWriting = "begin immediate transaction;";
constexpr const char* kCommit = "commit transaction;";
constexpr const char* kRollback = "rollback transaction;";

void RollBack(CppSQLite3DB& db) noexcept {
  if (!db.isOpen()) return;
  try {
    db.execDML(kRollback);
  } catch (const std::exception&) {
    return;  // no transaction was open, or SQLite has rolled back itself
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

std::shared_ptr<LockRecord> RecordOf(const std::string& domainId, const TableTask& task) {
  const int dbType = task.operation.dbType;
  auto record = FSResourceAdaptor::Instance().RegisterTable(GuidFromText(domainId), dbType, dbType);
  if (record == nullptr) {
    constexpr const char* kWhy = "the lock record was refused";
    task.Fail({}, kWhy, {kWhy, "."});
  }
  return record;
}

bool Open(CppSQLite3DB& db, const std::string& file, const TableTask& task) {
  const TableOperation& operation = task.operation;
  const bool makes = task.MakesFile();
  if (makes && !MakeParentFolders(file)) {
    task.log.Add(kLogError, __LINE__, "The folder of ", file.c_str(), " cannot be made.");
  }
  // For reads too: only a connection that may write can roll back what a crash left.
  db.open(file, makes ? CppSQLite3DB::Mode::kCreate : CppSQLite3DB::Mode::kReadWrite);
  if (task.Reads()) db.execDML(kBeginReading);
  db.requireKnownSchema();
  if (operation.access == TableAccess::kMake) return true;
  if (!db.tableExists(operation.table)) {
    if (operation.createSql == nullptr) return false;
    MakeTable(db, "main", file, operation, task.log);
  }
  if (makes) MakeIndex(db, "main", operation);
  return true;
}

TableOutcome AnswerNoTable(const std::string& file, const TableTask& task) {
  if (task.fault != nullptr) task.Answer(file, std::string("no table ") + task.operation.table);
  return TableOutcome::kNoTable;
}

// Whether the file is there; else what to answer.
std::optional<TableOutcome> LookFor(const std::string& file, const TableTask& task) {
  const int error = PathError(file);
  if (error == 0) return std::nullopt;
  const char* const why = ::strerrordesc_np(error);
  if (error == ENOENT) {
    task.Answer(file, why);
    return TableOutcome::kNoFile;
  }
  task.Fail(file, why, {file, " cannot be reached: ", why});
  return TableOutcome::kUnreachable;
}

TableOutcome RunLocked(CppSQLite3DB& db, const std::string& file, const TableTask& task,
                       const TableFrame::Body& body) {
  if (!task.MakesFile()) {
    if (const auto missing = LookFor(file, task)) return *missing;
  }
  bool isThere = false;
  const bool done = TableFrame::Attempt(
      db, task.operation, task.log,
      [&] {
        isThere = Open(db, file, task);
        if (isThere) body(db);
      },
      task.fault);
  if (!done) return TableOutcome::kFailed;
  return isThere ? TableOutcome::kRan : AnswerNoTable(file, task);
}

// The body of RunTogether, under both locks.
TableOutcome CommitBoth(CppSQLite3DB& db, const std::string& file, const std::string& secondFile,
                        const TableOperation& second, const TableTask& task,
                        const TableFrame::Body& body) {
  constexpr const char* kSecond = TableFrame::kSecond;
  if (PathError(file) != 0) return TableOutcome::kNoTable;
  TableOutcome outcome = TableOutcome::kNoTable;
  const auto work = [&] {
    db.open(file, CppSQLite3DB::Mode::kReadWrite);
    db.requireKnownSchema();
    if (!db.tableExists(task.operation.table)) return;
    db.attach(secondFile, kSecond);
    db.requireKnownSchema(kSecond);
    if (!HasRollbackJournal(db, "main") || !HasRollbackJournal(db, kSecond)) return;
    db.execDML(kBeginForWriting);
    RemoveAbandonedSuperJournals(db.fileName(), secondFile);
    DeferredLog madeLog(second.function, second.source);
    if (!db.tableExists(second.table, kSecond)) MakeTable(db, kSecond, secondFile, second, madeLog);
    MakeIndex(db, "main", task.operation);
    MakeIndex(db, kSecond, second);
    body(db);
    db.execDML(kCommit);
    outcome = TableOutcome::kRan;
  };
  const bool done = TableFrame::Attempt(db, task.operation, task.log, [&] {
    try {
      work();
    } catch (const CppSQLite3Exception& error) {
      if (MayPass(error.errorCode())) throw;
      RollBack(db);
    }
  });
  return done ? outcome : TableOutcome::kFailed;
}

// Whether the file has its table.
bool Attach(CppSQLite3DB& db, const std::string& file, const TableOperation& operation) {
  db.attach(file, TableFrame::kSecond, CppSQLite3DB::Mode::kReadWrite);
  db.requireKnownSchema(TableFrame::kSecond);
  return db.tableExists(operation.table, TableFrame::kSecond);
}

}  // namespace

TableOutcome TableFrame::Run(const CKSDBOperateBase& table, const TableOperation& operation,
                             const Body& body) {
  const std::string domainId = table.GetDomainId();
  return RunAt(domainId, table.fileSystem_->GetDBFile(operation.dbType, domainId), operation, body);
}

TableOutcome TableFrame::RunAt(const std::string& domainId, const std::string& file,
                               const TableOperation& operation, const Body& body,
                               TableFault* fault) {
  DeferredLog log(operation.function, operation.source);  // goes after the lock
  const TableTask task{operation, log, fault};
  TableOutcome outcome = TableOutcome::kFailed;
  CppSQLite3DB db;
  if (const auto record = RecordOf(domainId, task)) {
    const MutexLock lock(record->mutex);
    outcome = RunLocked(db, file, task, body);
    db.close();
  }
  if (IsFailure(outcome)) task.Count();
  // Writers name the devices of their rows themselves.
  if (operation.access == TableAccess::kChange) NoteChangeOfAllUnits();
  return outcome;
}

TableOutcome TableFrame::RunTogether(const CKSDBOperateBase& table, const TableOperation& first,
                                     const TableOperation& second, const Body& body) {
  DeferredLog log(first.function, first.source);  // goes after the locks
  const TableTask task{first, log, nullptr};
  const std::string domainId = table.GetDomainId();
  const auto record = RecordOf(domainId, task);
  const auto recordOfSecond = RecordOf(domainId, {second, log, nullptr});
  if (record == nullptr || recordOfSecond == nullptr) return TableOutcome::kNoTable;
  const std::string file = table.GetDBFile(first.dbType);
  const std::string secondFile = table.GetDBFile(second.dbType);
  CppSQLite3DB db;
  TableOutcome outcome = TableOutcome::kFailed;
  {
    const MutexLock lock(record->mutex);
    const MutexLock lockSecond(recordOfSecond->mutex);
    outcome = CommitBoth(db, file, secondFile, second, task, body);
    db.close();
  }
  if (IsFailure(outcome)) task.Count();
  return outcome;
}

TableOutcome TableFrame::ReadTogether(const std::string& domainId, const TableOperation& first,
                                      const std::string& firstFile, const TableOperation& second,
                                      const std::string& secondFile, const Body& body,
                                      TableFault* fault) {
  DeferredLog log(first.function, first.source);  // goes after the locks
  const TableTask task{first, log, fault};
  const TableTask taskOfSecond{second, log, fault};
  CppSQLite3DB db;
  TableOutcome outcome = TableOutcome::kFailed;
  const auto record = RecordOf(domainId, task);
  const auto recordOfSecond = RecordOf(domainId, taskOfSecond);
  if (record != nullptr && recordOfSecond != nullptr) {
    const MutexLock lock(record->mutex);
    const MutexLock lockSecond(recordOfSecond->mutex);
    const auto missing = LookFor(secondFile, taskOfSecond);
    bool isThere = false;
    outcome = missing ? *missing : RunLocked(db, firstFile, task, [&](CppSQLite3DB&) {
      isThere = Attach(db, secondFile, second);
      if (isThere) body(db);
    });
    db.close();
    if (outcome == TableOutcome::kRan && !isThere) {
      outcome = AnswerNoTable(secondFile, taskOfSecond);
    }
  }
  if (IsFailure(outcome)) task.Count();
  return outcome;
}

bool TableFrame::Attempt(CppSQLite3DB& db, const TableOperation& operation, DeferredLog& log,
                         const std::function<void()>& work, TableFault* fault) {
  const TableTask task{operation, log, fault};
  try {
    work();
    return true;
  } catch (const CppSQLite3Exception& error) {
    task.Fail(error.file(), error.errorMessage(),
              {"sqlite exception in rw:", error.file(), error.file().empty() ? "" : ": ",
               error.errorMessage(), "."});
  } catch (const std::exception& error) {
    task.Fail({}, error.what(), {"c++ exception in rw:", error.what(), "."},
              dynamic_cast<const std::bad_alloc*>(&error) != nullptr);
  } catch (...) {
    task.Fail({}, "an unknown error", {"unkown error."});
  }
  RollBack(db);
  return false;
}

}  // namespace keelstone
