#ifndef KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H
#define KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "keelstone/mutex.h"
#include "program/evaluate/run.h"

namespace keelstone::host {

/// What a scheduler does with runs. None of the operations throws.
class RunWork {
 public:
  virtual ~RunWork() = default;
  /// Evaluates one run; true when rows of its unit may be pending afterwards. Several
  /// workers at once, never for two runs of one unit.
  virtual bool Evaluate(Run& run) noexcept = 0;
  /// Returns when every row that was handed over before the call is on disk. Several
  /// workers at once, never for one domain.
  virtual void Flush(const std::string& domain) noexcept = 0;
  using Units = std::vector<std::unique_ptr<UnitData>>;
  /// Loads units ahead of their next runs, none of which is running or has rows pending;
  /// one element a key, or none at all: what is not loaded the runs load for themselves.
  /// Several threads at once.
  virtual Units Load(const DomainSnapshot& domain, const std::vector<UnitKey>& keys) noexcept;
  /// Takes evaluated runs, in the order of the input. One thread.
  virtual void Deliver(const std::vector<std::unique_ptr<Run>>& runs) noexcept = 0;
};

/// Evaluates runs on several threads, those of one unit (domain, device, source, param)
/// strictly in the order of submission and none before the rows of the one before it are
/// on disk, and delivers them in the order of submission.
///
/// Runs are taken breadth first: the earliest run whose unit has nothing pending. A domain
/// is flushed when there is none, or when so many values of it are pending that a flush is
/// worth its syncs of the disk and another worker can evaluate meanwhile; so one flush
/// serves all units of the domain that have been evaluated since the last one. A flush that
/// has begun serves no row that comes later, which is why units evaluated meanwhile wait
/// for the next one.
///
/// Units are loaded in bulk: those that a flush has made ready by the worker that flushed,
/// those that were idle by the thread that submits, both while other workers evaluate. What
/// is loaded of a unit is what its next run would read, because nobody writes the unit's
/// rows between: none of its runs is under way and none of its rows is pending.
///
/// What a run finds does not depend on the timers of the write-behind cache: the cache is
/// asked by unit, and when a run begins, the cache holds no row of its unit, because all
/// rows of the unit come from runs before it, and those were flushed. Whether they had
/// reached the disk earlier, when the cache's own thread woke up, makes no difference
/// then. Rows of other units are never an answer to its questions.
///
/// What no thread could be started for, the thread that submits does: it evaluates within
/// Submit and Drain, and delivers there and within Finish.
///
/// Only Submit, which says so by an exception, and loading ahead, which is then left out,
/// need memory that may be lacking; the threads themselves take none.
///
/// Any thread may call Stop; Submit, Drain and Finish belong to one thread.
class RunScheduler {
 public:
  struct Limits {
    unsigned threads = 1;             // that evaluate; 0: none is started
    std::size_t runs = 4096;          // submitted and not yet delivered
    std::size_t bytes = 256U << 20U;  // of their lines; one run is always let in
    // So many pending values are flushed while others evaluate: about ten transactions, of
    // which a shorter last one costs little.
    std::size_t valuesWorthAFlush = 6000;
  };

  RunScheduler(RunWork& work, const Limits& limits);
  /// Stops and waits for the threads.
  ~RunScheduler();
  RunScheduler(const RunScheduler&) = delete;
  RunScheduler& operator=(const RunScheduler&) = delete;

  /// How many evaluating threads could be started, of as many as were wanted; 0: none.
  unsigned workers() const noexcept { return static_cast<unsigned>(workers_.size()); }
  /// Why there are not all of them; empty when there are.
  const std::string& startFault() const noexcept { return startFault_; }

  /// Takes runs over; waits while the limits are reached. False when it has been stopped:
  /// what was not taken yet is dropped.
  [[nodiscard]] bool Submit(std::vector<std::unique_ptr<Run>> runs);
  /// Begins no run after the latest that has been begun, so that what is evaluated is
  /// the beginning of the input; what was submitted beyond is dropped.
  void Stop();
  /// No more runs will come: returns when all are evaluated (not yet delivered).
  void Drain();
  /// Returns when all are delivered, too.
  void Finish();

  /// Runs that Stop has dropped.
  std::uint64_t dropped() const;

 private:
  struct DomainQueue;
  /// The runs of one unit that are not evaluated yet, oldest first.
  struct Unit {
    enum class State { kClean, kRunning, kPending, kFlushing };
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
  using Ready = std::pair<std::uint64_t, Unit*>;

  void StartThreads();
  void Work();
  void DeliverAll();
  bool DeliverReady() KS_REQUIRES(mutex_);
  bool HelpOut() KS_REQUIRES(mutex_);
  bool PerformNext() KS_REQUIRES(mutex_);
  bool IsFlushDue() const KS_REQUIRES(mutex_);
  void PerformRun(Unit& unit) KS_REQUIRES(mutex_);
  void PerformFlush(DomainQueue& domain) KS_REQUIRES(mutex_);
  void FlushAndLoad(const std::string& domain, Unit* units) KS_REQUIRES(mutex_);
  void LoadIdleUnits(const std::vector<std::unique_ptr<Run>>& runs) KS_EXCLUDES(mutex_);
  void Enqueue(std::unique_ptr<Run> run) KS_REQUIRES(mutex_);
  Unit& UnitOf(const ParsedRun& run) KS_REQUIRES(mutex_);
  void MakeReadyOrForget(Unit& unit) KS_REQUIRES(mutex_);
  void AwaitFlush(DomainQueue& domain) KS_REQUIRES(mutex_);
  void ListFlushable(DomainQueue& domain) KS_REQUIRES(mutex_);
  void CutAfter(std::uint64_t sequence, Unit& unit) KS_REQUIRES(mutex_);
  bool IsFull() const KS_REQUIRES(mutex_);

  RunWork& work_;
  const Limits limits_;

  mutable Mutex mutex_;      // guards all below; nothing else is taken or done while it is held
  Condition workComes_;      // something to evaluate or to flush, or the end
  Condition deliveryComes_;  // the earliest run is done, or the end
  Condition roomComes_;      // a run was delivered, or a stop
  std::unordered_map<std::string, Unit> units_ KS_GUARDED_BY(mutex_);
  std::unordered_map<std::string, DomainQueue> domains_ KS_GUARDED_BY(mutex_);
  std::vector<Ready> ready_ KS_GUARDED_BY(mutex_);  // a heap, with room for all units
  DomainQueue* firstFlushable_ KS_GUARDED_BY(mutex_) = nullptr;
  DomainQueue* lastFlushable_ KS_GUARDED_BY(mutex_) = nullptr;
  std::deque<std::unique_ptr<Run>> undelivered_ KS_GUARDED_BY(mutex_);  // in input order
  std::string keyBuffer_ KS_GUARDED_BY(mutex_);
  std::size_t queued_ KS_GUARDED_BY(mutex_) = 0;  // runs not begun
  std::size_t heldRuns_ KS_GUARDED_BY(mutex_) = 0;
  std::size_t heldBytes_ KS_GUARDED_BY(mutex_) = 0;
  std::uint64_t nextSequence_ KS_GUARDED_BY(mutex_) = 1;
  std::uint64_t latestBegun_ KS_GUARDED_BY(mutex_) = 0;
  std::uint64_t dropped_ KS_GUARDED_BY(mutex_) = 0;
  bool stopped_ KS_GUARDED_BY(mutex_) = false;
  bool closed_ KS_GUARDED_BY(mutex_) = false;
  bool isShared_ KS_GUARDED_BY(mutex_) = false;  // there is more than one worker

  std::vector<std::unique_ptr<Run>> delivering_;  // of whoever delivers
  std::vector<std::thread> workers_;
  std::thread deliverer_;
  std::string startFault_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H
