#ifndef KEELSTONE_PROGRAM_EVALUATE_UNIT_QUEUES_H
#define KEELSTONE_PROGRAM_EVALUATE_UNIT_QUEUES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "keelstone/mutex.h"
#include "program/evaluate/run.h"

namespace keelstone::host {

/// The runs that are not evaluated yet, by unit (domain, device, source, param), and which of
/// them may begin. A unit's runs follow each other; none begins before the rows of the one
/// before it are on disk. Its owner evaluates and flushes, and says when it has.
///
/// Runs are taken breadth first: the earliest whose unit has nothing pending. One flush serves
/// all units of a domain that were evaluated before it began; units that were evaluated
/// meanwhile wait for the next one.
///
/// Only Add needs memory. One thread at a time; the runs stay with the owner.
class UnitQueues {
 private:
  enum class State { kClean, kRunning, kPending, kFlushing };

 public:
  struct DomainQueue;
  /// The runs of one unit that are not begun yet, oldest first.
  struct Unit {
    const std::string* key = nullptr;
    DomainQueue* domain = nullptr;
    State state = State::kClean;
    Run* head = nullptr;
    Run* tail = nullptr;
    Unit* nextPending = nullptr;     // in its domain's list
    std::unique_ptr<UnitData> data;  // loaded for the next run
  };
  struct DomainQueue {
    const std::string* name = nullptr;
    Unit* pending = nullptr;  // units with rows that no flush has begun to write, newest first
    std::size_t values = 0;   // evaluated in their runs: about as many rows
    std::size_t waiting = 0;  // how many of them have a run to go
    bool flushing = false;
    bool listed = false;          // stands among the flushable ones
    DomainQueue* next = nullptr;  // of these
  };

  /// `workComes` is told of each run and each flush that may begin.
  explicit UnitQueues(Condition& workComes) : workComes_(workComes) {}

  /// Puts a run behind those of its unit, with the next number in the input. No change when
  /// there is no memory for it.
  void Add(Run& run);
  /// Whether a run of the unit is under way or waits, or its rows do.
  bool Contains(const std::string& unitKey) const { return units_.contains(unitKey); }
  /// Runs that have not begun.
  std::size_t queued() const noexcept { return queued_; }

  bool HasReady() const noexcept { return !ready_.empty(); }
  /// The unit of the earliest run that may begin, and in `runs` that run with those of the unit
  /// behind it that come before all others: at most `most`, linked by `next`. Empty when its
  /// runs were dropped. Then, with what is not evaluated of them, End.
  Unit* Begin(std::size_t most, Run*& runs);
  /// `values` of the unit were evaluated; rows of it may be pending.
  void End(Unit& unit, Run* notBegun, bool isPending, std::size_t values);

  /// The domain that is to be flushed first, or nullptr.
  const DomainQueue* flushable() const noexcept { return firstFlushable_; }
  /// Begins its flush: its units with pending rows, linked by `nextPending`. Then EndFlush.
  DomainQueue& BeginFlush();
  void EndFlush(DomainQueue& domain, Unit* units);

  /// Forgets the runs behind the latest that has begun; the number of that one.
  std::uint64_t DropRest();
  void NoteDropped() noexcept { --queued_; }

 private:
  using Ready = std::pair<std::uint64_t, Unit*>;

  Unit& UnitOf(const Run& run);
  void MakeReadyOrForget(Unit& unit);
  void AwaitFlush(DomainQueue& domain);
  void ListFlushable(DomainQueue& domain);
  static void CutAfter(std::uint64_t sequence, Unit& unit);

  Condition& workComes_;
  std::unordered_map<std::string, Unit> units_;
  std::unordered_map<std::string, DomainQueue> domains_;
  std::vector<Ready> ready_;  // a heap, with room for all units
  DomainQueue* firstFlushable_ = nullptr;
  DomainQueue* lastFlushable_ = nullptr;
  std::size_t queued_ = 0;
  std::uint64_t nextSequence_ = 1;
  std::uint64_t latestBegun_ = 0;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_UNIT_QUEUES_H
