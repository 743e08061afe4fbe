#include "storage/tables/row_batch.h"

namespace keelstone {

namespace {

constexpr const char* kBegin = "begin transaction;";
constexpr const char* kCommit = "commit transaction;";

}  // namespace

void RowBatch::BeforeRow() {
  if (rows_ == 0 && limit_ != kCallers) db_.execDML(kBegin);
}

void RowBatch::AfterRow(int rows) {
  if (limit_ == kCallers) return;
  rows_ += rows;
  if (rows_ < limit_) return;
  db_.execDML(kCommit);
  rows_ = 0;
}

void RowBatch::Finish() {
  if (rows_ >= 1) db_.execDML(kCommit);
  rows_ = 0;
}

}  // namespace keelstone
