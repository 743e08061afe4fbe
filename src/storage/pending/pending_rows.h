#ifndef KEELSTONE_STORAGE_PENDING_PENDING_ROWS_H
#define KEELSTONE_STORAGE_PENDING_PENDING_ROWS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "keelstone/mutex.h"
#include "keelstone/rule_records.h"
#include "storage/pending/pending_index.h"

namespace keelstone {

/// Rows that were handed over together; shared by the generation that writes them and by
/// who may hand them over again.
using RuleRowBatch = std::shared_ptr<const std::vector<ObjectRuleData>>;
using HistoryRowBatch = std::shared_ptr<const std::vector<ObjectRuleHistoryData>>;

/// The pending rows of one unit in order of arrival, and the first row of each key. Rows
/// stay where they lie as long as the unit lives: the indexes point at them.
struct PendingUnit {
  std::vector<RuleRowBatch> rules;
  std::vector<HistoryRowBatch> history;
  PendingIndex<PendingDefinition> firstDefinition;
  PendingIndex<PendingHistory> firstHistory;
  std::size_t ruleCount = 0;
  std::size_t historyCount = 0;
  std::size_t slot = 0;  // of the presence counter

  PendingUnit() = default;
  PendingUnit(RuleRowBatch ruleRows, HistoryRowBatch historyRows);
  bool Has(const PendingKey& key) const {
    return firstDefinition.Find(key) || firstHistory.Find(key);
  }
  /// Takes the rows of `later` behind its own.
  void Append(PendingUnit&& later);
};

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>()(text);
  }
};

/// Rows of one domain that are written in one go. Rows join it while it is open; once it
/// is sealed nothing in it changes.
struct PendingGeneration {
  std::uint64_t number = 0;  // counts up within the domain, from 1
  std::unordered_map<std::string, PendingUnit, TextHash, std::equal_to<>> units;
  std::size_t rows = 0;
  std::size_t ruleRows = 0;  // of them

  /// The rows in order of unit key, then of arrival: those of one device lie side by side in
  /// the tables too, and sorting them further gains nothing.
  std::vector<const ObjectRuleData*> RuleRows() const;
  std::vector<const ObjectRuleHistoryData*> HistoryRows() const;

 private:
  std::vector<const PendingUnit*> UnitsInOrder() const;
};

class PendingRows;

/// Rows that one caller has handed over and may hand over again, but for those whose keys
/// have got newer rows since, from whomever: these stand. Its owner drops it; PendingRows
/// must outlive it. Any thread.
class HandedRows {
 public:
  ~HandedRows();
  HandedRows(const HandedRows&) = delete;
  HandedRows& operator=(const HandedRows&) = delete;

 private:
  friend class PendingRows;
  HandedRows(PendingRows& owner, std::string unit, RuleRowBatch rules, HistoryRowBatch history);

  PendingRows& owner_;
  const std::string unit_;  // domain and unit
  const RuleRowBatch rules_;
  const HistoryRowBatch history_;
  // Which rows have been overtaken; guarded by the owner's mutex_.
  std::vector<bool> isRuleOld_;
  std::vector<bool> isHistoryOld_;
};

/// All rows that are not on disk yet: per domain the sealed generations, oldest first,
/// and the open one. A generation is found by the lookups until it is dropped. Any
/// thread.
class PendingRows {
 public:
  class Flush;

  PendingRows() = default;
  PendingRows(const PendingRows&) = delete;
  PendingRows& operator=(const PendingRows&) = delete;

  void Add(const std::string& domainId, const std::string& unitKey,
           std::vector<ObjectRuleData> rules, std::vector<ObjectRuleHistoryData> history);
  /// The same for rows that the caller may hand over again.
  std::shared_ptr<HandedRows> AddKept(const std::string& domainId, const std::string& unitKey,
                                      std::vector<ObjectRuleData> rules,
                                      std::vector<ObjectRuleHistoryData> history);
  void AddAgain(const std::string& domainId, const std::string& unitKey, const HandedRows& rows);
  /// Rows in open generations.
  std::int64_t OpenRows() const noexcept { return openRows_.load(); }

  // The oldest row of the key. While nothing of the unit is pending they take no lock.
  std::shared_ptr<RuleDefinitionData> FindDefinition(std::string_view domainId,
                                                     std::string_view unitKey,
                                                     const PendingKey& key) const;
  bool FindHistory(std::string_view domainId, std::string_view unitKey, const PendingKey& key,
                   std::string& out) const;
  bool HasUnit(std::string_view domainId, std::string_view unitKey) const;
  /// How many units with rows fall on the unit's counter; 0: the lookups find nothing.
  const std::atomic<std::uint32_t>& UnitCounter(std::string_view domainId,
                                                std::string_view unitKey) const noexcept {
    return present_[SlotOf(domainId, unitKey)];
  }

  /// Seals the open generation of the domain; the number of its newest sealed one, 0 when
  /// none is pending.
  std::uint64_t Seal(const std::string& domainId);
  /// The same for every domain, in order of their ids; those with nothing pending are
  /// left out.
  std::vector<std::pair<std::string, std::uint64_t>> SealAll();

 private:
  friend class HandedRows;
  struct Domain {
    std::deque<std::unique_ptr<PendingGeneration>> sealed;  // oldest first
    std::unique_ptr<PendingGeneration> open;                // empty while it has no rows
    std::uint64_t lastNumber = 0;
  };
  // So many that the counters of two units seldom coincide, so few that they stay cached.
  static constexpr std::size_t kSlots = 4096;

  static std::size_t SlotOf(std::string_view domainId, std::string_view unitKey) noexcept;
  template <class Look>
  bool LookUp(std::string_view domainId, std::string_view unitKey, const Look& look) const;
  void AddUnit(const std::string& domainId, const std::string& unitKey, PendingUnit unit,
               const HandedRows* own) KS_REQUIRES(mutex_);
  void Overtake(const std::string& unit, const PendingUnit& newer, const HandedRows* own)
      KS_REQUIRES(mutex_);
  void Forget(const HandedRows& rows);
  std::uint64_t SealDomain(Domain& domain) KS_REQUIRES(mutex_);
  const PendingGeneration* Oldest(const std::string& domainId, std::uint64_t last) const;
  void DropOldest(const std::string& domainId);
  void Claim(const std::string& domainId);
  void Release(const std::string& domainId) noexcept;

  // Guards domains_ and the open generations in it; evaluation waits for it, so it is
  // held for look-ups and moves of pointers only.
  mutable SharedMutex mutex_;
  std::map<std::string, Domain, std::less<>> domains_ KS_GUARDED_BY(mutex_);
  // What may be handed over again, by domain and unit.
  std::unordered_multimap<std::string, HandedRows*> handed_ KS_GUARDED_BY(mutex_);
  // How many units with rows fall on each slot, over all generations.
  std::array<std::atomic<std::uint32_t>, kSlots> present_{};
  std::atomic<std::int64_t> openRows_{0};

  Mutex flushMutex_;  // guards flushing_; innermost
  Condition flushEnded_;
  std::set<std::string> flushing_ KS_GUARDED_BY(flushMutex_);
};

/// The right to write one domain's generations up to one number; a second one of the
/// domain waits until the first has gone. One thread, which holds one at a time.
class PendingRows::Flush {
 public:
  Flush(PendingRows& rows, const std::string& domainId, std::uint64_t last);
  ~Flush();
  Flush(const Flush&) = delete;
  Flush& operator=(const Flush&) = delete;

  /// The oldest generation that is left to write; nullptr when there is none. It stays as
  /// it is until DropOldest.
  const PendingGeneration* Oldest() const { return rows_.Oldest(domainId_, last_); }
  /// Forgets the oldest generation: its rows are on disk, or lost.
  void DropOldest() { rows_.DropOldest(domainId_); }

 private:
  PendingRows& rows_;
  std::string domainId_;
  std::uint64_t last_;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_PENDING_PENDING_ROWS_H
