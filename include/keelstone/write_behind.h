#ifndef KEELSTONE_WRITE_BEHIND_H
#define KEELSTONE_WRITE_BEHIND_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// Whether rows of one unit wait to be written, for the price of one atomic load: a run asks
/// DBWriteWrapper for it once and looks before each value's lookups.
///
/// It is no snapshot. While MayHaveRows answers false the lookups of the unit find nothing,
/// which is how they begin themselves; so ask it for every value anew and never keep its
/// answer, since another instance may hand rows of the unit over at any time. The count
/// behind it rises before a row can be found and falls after the row is on disk: what a
/// thread's own CacheData handed over, or one that this thread knows to have returned, is
/// never missed. True may be said for another unit that shares the counter. Copies are
/// cheap and hold as long as the process. Any thread.
class PendingMark {
 public:
  explicit PendingMark(const std::atomic<std::uint32_t>& units) noexcept : units_(&units) {}
  bool MayHaveRows() const noexcept { return units_->load(std::memory_order_acquire) != 0; }

 private:
  const std::atomic<std::uint32_t>* units_;  // with rows, that fall on the unit's counter
};

class HandedRows;
class RowSource;

/// The write-behind cache in front of the object-rule and history tables. Evaluation
/// hands rows over and goes on; one worker thread writes them when "CacheSize" rows
/// (10000) are pending, or every "CacheTime" seconds (60). Both are read from section
/// "Keelstone" of fix_frontserver.ini and frontserver.ini when the cache is first used;
/// "BachCount" (10000), the rows a log line, at every flush.
///
/// A row is found by the lookups from the moment it is handed over until it is on disk,
/// the oldest of a key first: rows that a flush is writing come before those that have
/// come since. The rows of one domain reach the disk in the order in which they came, those
/// of one flush in one commit: what a killed process leaves has all rows of a run or none.
///
/// Made on first use and never destroyed; the worker never ends, and what is pending when
/// the process ends is lost: a host calls ForceWriteDisk before it goes. A child of fork()
/// begins with nothing pending, and starts a worker when it hands the first rows over. Any
/// thread.
class KEELSTONE_EXPORT DBWriteWrapper {
 public:
  static DBWriteWrapper* Instance();

  /// Takes rows over. The definitions in `rules` stay shared with the caller; a change
  /// made to them before they are written is written.
  void CacheData(const std::string& domainId, const std::string& unitKey,
                 std::vector<ObjectRuleData> rules, std::vector<ObjectRuleHistoryData> history);
  /// The same for rows that the caller may hand over again, as long as it keeps the answer;
  /// HandOverAgain leaves out the rows whose keys have got newer ones since, from whomever.
  std::shared_ptr<HandedRows> HandOver(const std::string& domainId, const std::string& unitKey,
                                       std::vector<ObjectRuleData> rules,
                                       std::vector<ObjectRuleHistoryData> history);
  void HandOverAgain(const std::string& domainId, const std::string& unitKey,
                     const HandedRows& rows);

  /// The oldest pending definition of the variable, itself and not a copy; empty when
  /// there is none.
  std::shared_ptr<RuleDefinitionData> GetCachedRuleDefinition(
      const std::string& domainId, const std::string& unitKey, const std::string& interfaceValue,
      const std::string& variableSource, const std::string& param,
      const std::string& variableName) const;
  /// Copies the oldest pending history text of the variable: 1, or 0 when there is none.
  int GetCachedHistoryData(const std::string& domainId, const std::string& unitKey,
                           const std::string& interfaceValue, const std::string& variableSource,
                           const std::string& param, const std::string& variableName,
                           std::string& historyOut) const;

  /// The unit's mark, which answers HasPendingRows roughly and without its cost.
  PendingMark MarkOf(const std::string& domainId, const std::string& unitKey) const noexcept;
  /// Whether rows of the unit wait to be written.
  bool HasPendingRows(const std::string& domainId, const std::string& unitKey) const;

  /// From now on flushes of the domain write the rows of `source`, too; false when the domain
  /// has a source. Whoever adds one removes it before it ends, and not from within a flush.
  bool AddSource(const std::string& domainId, RowSource& source);
  void RemoveSource(const std::string& domainId);
  /// So many rows have come to the domain's source: they count like rows handed over, until a
  /// flush takes them.
  void NoteSourceRows(const std::string& domainId, std::int64_t count);

  /// Writes what is pending of one domain and answers the number of rows that this call
  /// wrote. Returns when every row handed over before the call is written, also those
  /// that another flush had taken. From within a flush (a host's log callback) it does
  /// nothing and answers 0.
  int WriteDomain(const std::string& domainId);
  /// How many batches of rows that were handed over could not be written and were dropped, each
  /// noted with GetFailedWriteCount, too.
  std::uint64_t LostBatches() const noexcept;
  /// Writes everything that is pending, domain after domain in order of their ids, each in
  /// one commit; the log counts "BachCount" rows a line. Returns as WriteDomain does, also
  /// from within a flush.
  void ForceWriteDisk();

 private:
  struct State;
  DBWriteWrapper();
  ~DBWriteWrapper() = delete;
  void WakeWhenDue();
  void StartWorker();
  void FlushWithoutWorker();
  int WriteUpTo(const std::string& domainId, std::uint64_t last, std::size_t announced);
  void Work();
  void Renew();

  State* state_;
};

}  // namespace keelstone

#endif  // KEELSTONE_WRITE_BEHIND_H
