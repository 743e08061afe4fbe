#ifndef KEELSTONE_STORAGE_TABLE_FRAME_H
#define KEELSTONE_STORAGE_TABLE_FRAME_H

#include <functional>
#include <limits>

#include "platform/cppsqlite3.h"
#include "platform/mutex.h"
#include "storage/cksdboperatebase.h"
#include "storage/deferred_log.h"

namespace keelstone {

/// What an operation does to its database file.
enum class TableAccess {
  kRead,    // a missing file or table is answered
  kChange,  // likewise; an error counts as a failed write
  kCreate,  // a missing file is made with its folder; an error counts as a failed write
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

/// The frame of every operation on a database: takes the lock record of the domain's
/// database, resolves and opens the file, looks for the table, runs the body, closes and
/// lets go; what fails is rolled back, logged after the lock is free, and counted. Every
/// exception ends here. Any thread.
class TableFrame {
 public:
  using Body = std::function<void(CppSQLite3DB&)>;
  static TableOutcome Run(const CKSDBOperateBase& table, const TableOperation& operation,
                          const Body& body);
  /// Runs `body` as one transaction over two databases of the domain: the file of `second`
  /// is attached as kSecond, made with its table when missing. Holds both lock records,
  /// taken in the order of the arguments, which must be that of their database types.
  /// kRan: all is on disk. kFailed: neither file has changed; logged and counted. kNoTable:
  /// the two cannot share a transaction (the first or its table is missing, one is damaged,
  /// may not be written or keeps no rollback journal); nothing was written nor logged, and
  /// the caller works on one after the other.
  static TableOutcome RunTogether(const CKSDBOperateBase& table, const TableOperation& first,
                                  const TableOperation& second, const Body& body);
  static constexpr const char* kSecond = "second";
  /// Runs `work` alone, under the caller's locks: what it throws is logged to `log` and
  /// what it left open on `db` is rolled back. Whether it ran to its end.
  static bool Attempt(CppSQLite3DB& db, const TableOperation& operation, DeferredLog& log,
                      const std::function<void()>& work);

 private:
  static TableOutcome RunLocked(CppSQLite3DB& db, const std::string& file,
                                const TableOperation& operation, const Body& body,
                                DeferredLog& log);
  static bool Open(CppSQLite3DB& db, const std::string& file, const TableOperation& operation,
                   DeferredLog& log);
  static TableOutcome RunBothLocked(CppSQLite3DB& db, const std::string& firstFile,
                                    const TableOperation& first, const std::string& secondFile,
                                    const TableOperation& second, const Body& body,
                                    DeferredLog& log);
};

/// Groups the rows of one write into transactions, of 600 unless told: BeforeRow and
/// AfterRow around each row, Finish after the last. What an error leaves open, the frame rolls
/// back.
class RowBatch {
 public:
  static constexpr int kRows = 600;
  static constexpr int kAllRows = std::numeric_limits<int>::max();  // one transaction
  static constexpr int kCallers = 0;  // the caller has begun one and commits it

  explicit RowBatch(CppSQLite3DB& db, int rowsATransaction = kRows)
      : db_(db), limit_(rowsATransaction) {}
  void BeforeRow();
  void AfterRow();
  void Finish();

 private:
  CppSQLite3DB& db_;
  int limit_;
  int rows_ = 0;
};

/// Counts a write whose rows are not on disk (GetFailedWriteCount). Any thread.
void CountFailedWrite() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLE_FRAME_H
