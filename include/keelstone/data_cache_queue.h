#ifndef KEELSTONE_DATA_CACHE_QUEUE_H
#define KEELSTONE_DATA_CACHE_QUEUE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// Loads rules and histories of many units ahead of need: keys are collected, two loader
/// threads (one for rules, one for histories) fetch up to 100,000 units a load, 1000 in one
/// opening of the database; those that are there can be had while the others load, and each
/// unit is handed out once.
///
/// What is handed out is what a reading of the database would give at that moment, as far
/// as this process writes to it:
/// - Rows of a unit that wait to be written are flushed before the unit is loaded.
/// - A unit whose rows have been changed since it was loaded (by the tables, a merge, the
///   cleaner, or rows handed to DBWriteWrapper) is not handed out any more.
/// - A unit that Get… itself had asked for and whose caller gave up stays in memory, but
///   only one put ahead with Put… serves a later caller; others are replaced by the next
///   load.
/// What another process writes is seen as late as by a unit loaded at that time.
///
/// Any thread; one queue a domain. Nobody may be inside a call when it is destroyed; its
/// threads are ended and waited for then.
class KEELSTONE_EXPORT KSDataCacheQueue {
 public:
  KSDataCacheQueue();
  ~KSDataCacheQueue();
  KSDataCacheQueue(const KSDataCacheQueue&) = delete;
  KSDataCacheQueue& operator=(const KSDataCacheQueue&) = delete;

  /// Sets the table to load from and starts the loaders. Units of a table set before are
  /// forgotten. An empty pointer changes nothing.
  void SetKSObjectRuleSql(std::shared_ptr<KSObjectRuleSql> table);

  /// Asks for a unit ahead of need. Not taken are empty pointers and keys whose text may
  /// stand for another unit too (GetKeyString, with "$" where the names meet).
  void PutRuleKey(std::shared_ptr<UnitKey> key);
  void PutHistoryKey(std::shared_ptr<UnitKey> key);

  /// Moves what is asked for to the end of `out`, the oldest first, 100,000 keys at most;
  /// waits up to 30 ms for keys to come. Answers the number of keys in `out`. (The loaders
  /// use it; keys taken by others are not loaded.)
  int GetRuleKeys(std::vector<std::shared_ptr<UnitKey>>& out);
  int GetHistoryKeys(std::vector<std::shared_ptr<UnitKey>>& out);
  /// Takes the oldest history key; empty when there is none.
  std::shared_ptr<UnitKey> GetHistoryKey();
  void ClearHistoryKey();

  /// The unit, asked for unless it has been loaded ahead: waits while a load runs, and else
  /// nine times for 10 ms. Empty for a unit that is not in the database or does not come
  /// in time; the caller then reads the database itself. The data is the caller's alone.
  std::shared_ptr<DevParserRule> GetRuleData(std::shared_ptr<UnitKey> key);
  std::shared_ptr<DevParserHistory> GetHistoryData(std::shared_ptr<UnitKey> key);

  /// "PackageMaxSize" of section "Upload", bytes (8388608): how much of each kind a host
  /// sends at once. Read when the queue is made.
  std::int32_t RulePackageMaxSize() const noexcept { return rulePackageMaxSize_; }
  std::int32_t HistoryPackageMaxSize() const noexcept { return historyPackageMaxSize_; }

 private:
  struct Loaders;

  std::int32_t rulePackageMaxSize_;
  std::int32_t historyPackageMaxSize_;
  std::unique_ptr<Loaders> loaders_;
};

}  // namespace keelstone

#endif  // KEELSTONE_DATA_CACHE_QUEUE_H
