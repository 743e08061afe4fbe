#ifndef KEELSTONE_STORAGE_TABLES_TABLE_FRAME_H
#define KEELSTONE_STORAGE_TABLES_TABLE_FRAME_H

#include <functional>
#include <string>

#include "keelstone/cppsqlite3.h"
#include "keelstone/mutex.h"
#include "keelstone/table_base.h"
#include "storage/tables/deferred_log.h"

namespace keelstone {

/// What an operation does to its database file. A failed kRead counts as a failed read, a
/// failed kChange or kCreate as a failed write. What fails in kAsk and kMake is the caller's
/// to tell: it is neither logged nor counted.
enum class TableAccess {
  kAsk,     // as kRead
  kRead,    // a missing file or table is answered; all that the body reads is of one moment
  kChange,  // likewise
  kCreate,  // a missing file is made with its folder
  kMake,    // likewise; the body makes the table
};

/// What an operation works on, and how it signs its log lines. Texts are literals.
struct TableOperation {
  const char* table;
  int dbType;  // EnumDbType
  const char* function;
  const char* source;
  TableAccess access = TableAccess::kRead;
  const char* createSql = nullptr;   // {0}: the table; makes it when it is missing
  const char* indexSql = nullptr;    // {0}: the file's schema; makes the index likewise
  const char* failedName = nullptr;  // what "… operate failed." names; else the table
};

enum class TableOutcome {
  kNoFile,       // nothing was touched
  kNoTable,      // likewise
  kUnreachable,  // whether the file is there cannot be found out; logged and counted
  kRan,          // the body ran to its end
  kFailed,       // the lock record was refused or an error was caught; rolled back and logged
};

/// The uniform answer of the object-rule operations.
constexpr bool IsFailure(TableOutcome outcome) noexcept {
  return outcome == TableOutcome::kFailed || outcome == TableOutcome::kUnreachable;
}

constexpr int StatusOf(TableOutcome outcome) noexcept {
  if (outcome == TableOutcome::kNoFile || outcome == TableOutcome::kUnreachable) return 0;
  return outcome == TableOutcome::kNoTable ? 1 : -1;
}

/// Why an operation did not run, for callers who answer it.
struct TableFault {
  std::string file;     // "" when none was open
  std::string message;  // "what was done: why it failed"; "" when nothing did
  bool isMemory = false;

  /// "FILE: what was done: why it failed". Throws std::bad_alloc when it was memory that
  /// was lacking.
  std::string Text() const;
};

/// The frame of every operation on a database: takes the lock record of the domain's
/// database, resolves and opens the file, looks for the table, runs the body, closes and
/// lets go; what fails is rolled back, logged after the lock is free, and counted. Every
/// exception ends here. Where a `fault` is given, it says why the outcome is not kRan. Any
/// thread.
class TableFrame {
 public:
  using Body = std::function<void(CppSQLite3DB&)>;
  static TableOutcome Run(const CKSDBOperateBase& table, const TableOperation& operation,
                          const Body& body);
  /// The same on a file that the caller has resolved.
  static TableOutcome RunAt(const std::string& domainId, const std::string& file,
                            const TableOperation& operation, const Body& body,
                            TableFault* fault = nullptr);
  /// Runs `body` as one transaction over two databases of the domain: the file of `second`
  /// is attached as kSecond, made with its table when missing. Holds both lock records,
  /// taken in the order of the arguments, which must be that of their database types.
  /// kRan: all is on disk. kFailed: neither file has changed; logged and counted. kNoTable:
  /// the two cannot share a transaction (the first or its table is missing, one is damaged,
  /// may not be written or keeps no rollback journal); nothing was written nor logged, and
  /// the caller works on one after the other.
  static TableOutcome RunTogether(const CKSDBOperateBase& table, const TableOperation& first,
                                  const TableOperation& second, const Body& body);
  /// Runs `body`, which only reads, with the file of `second` attached as kSecond, in one
  /// reading of both; holds both lock records likewise. kNoFile and kNoTable: one of the two
  /// is missing.
  static TableOutcome ReadTogether(const std::string& domainId, const TableOperation& first,
                                   const std::string& firstFile, const TableOperation& second,
                                   const std::string& secondFile, const Body& body,
                                   TableFault* fault);
  static constexpr const char* kSecond = "second";
  /// Runs `work` alone, under the caller's locks: what it throws is logged to `log` and
  /// what it left open on `db` is rolled back. Whether it ran to its end.
  static bool Attempt(CppSQLite3DB& db, const TableOperation& operation, DeferredLog& log,
                      const std::function<void()>& work, TableFault* fault = nullptr);
};

/// Counts a write whose rows are not on disk (GetFailedWriteCount). Any thread.
void CountFailedWrite() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_TABLE_FRAME_H
