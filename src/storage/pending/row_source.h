#ifndef KEELSTONE_STORAGE_PENDING_ROW_SOURCE_H
#define KEELSTONE_STORAGE_PENDING_ROW_SOURCE_H

#include <vector>

#include "keelstone/rule_records.h"

namespace keelstone {

/// Rows of one source, newest state of each key: a key stands in them once as a rule, which
/// may carry its history, or as a history, or as both with an empty history.
struct SourceRows {
  std::vector<ObjectRuleData> rules;
  std::vector<ObjectRuleHistoryData> histories;
};

/// Keeps unwritten rows of one domain where they are worked on, until the write-behind cache
/// asks for them: its worker and every flush write them behind the rows that were handed over
/// to the cache. The cache calls Take and Written in turn, under the right to flush the domain;
/// HasRows any thread calls.
class RowSource {
 public:
  virtual ~RowSource() = default;
  /// Whether rows are not on disk, those that are being written among them.
  virtual bool HasRows() = 0;
  /// All rows that are not on disk; those of what belongs together, or none of it.
  virtual SourceRows Take() = 0;
  /// What became of the rows taken last. Rows that are not on disk are given again by the next
  /// Take, unless newer ones have come.
  virtual void Written(bool isOnDisk) noexcept = 0;
  /// In the child of a fork(), where the cache has forgotten the source: what the parent holds
  /// is the parent's to write.
  virtual void Renew() noexcept = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_PENDING_ROW_SOURCE_H
