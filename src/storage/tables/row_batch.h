#ifndef KEELSTONE_STORAGE_TABLES_ROW_BATCH_H
#define KEELSTONE_STORAGE_TABLES_ROW_BATCH_H

#include <cstdint>
#include <limits>

#include "keelstone/cppsqlite3.h"

namespace keelstone {

/// Groups the rows of one write into transactions, of 600 unless told: BeforeRow and
/// AfterRow around each row, or around several at once, Finish after the last. What an error leaves
/// open, the frame rolls back.
class RowBatch {
 public:
  static constexpr int kRows = 600;
  static constexpr int kAllRows = std::numeric_limits<int>::max();  // one transaction
  static constexpr int kCallers = 0;  // the caller has begun one and commits it

  explicit RowBatch(CppSQLite3DB& db, int rowsATransaction = kRows)
      : db_(db), limit_(rowsATransaction) {}
  void BeforeRow();
  void AfterRow(int rows = 1);
  void Finish();

 private:
  CppSQLite3DB& db_;
  int limit_;
  std::int64_t rows_ = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_ROW_BATCH_H
