#ifndef KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H
#define KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/mutex.h"
#include "program/evaluate/input_batch.h"
#include "program/evaluate/run.h"
#include "program/evaluate/unit_queues.h"

namespace keelstone::host {

/// What a scheduler does with lines and runs. None of the operations throws.
class RunWork {
 public:
  virtual ~RunWork() = default;
  /// Reads the lines of a batch to runs. Several workers at once.
  virtual void Read(InputBatch& batch) noexcept = 0;
  /// Takes in what was read, in the order of the input: what still stands in the batch as a run
  /// is evaluated. False when nothing behind it is. One thread at a time.
  virtual bool Admit(InputBatch& batch) noexcept = 0;
  /// A batch that nobody needs any more.
  virtual void GiveBack(std::unique_ptr<InputBatch> batch) noexcept = 0;
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
  /// Takes evaluated runs over, in the order of the input. One thread at a time.
  virtual void Deliver(std::vector<std::unique_ptr<Run>>& runs) noexcept = 0;
};

/// Evaluates runs on several threads, those of one unit (domain, device, source, param)
/// strictly in the order of the input (`UnitQueues`), and delivers them in that order.
///
/// Lines come in batches. Any worker reads a batch; what was read is admitted batch by batch
/// in the order of the input, by whichever worker comes by, and joins the queues of its units
/// then. A worker takes the first of these that it can do: admit what was read, evaluate, read,
/// flush. A flush is taken before the others when so many values of a domain are pending that
/// it is worth its syncs of the disk and another worker can evaluate meanwhile.
///
/// Units are loaded in bulk: those that a flush has made ready by the worker that flushed,
/// those that were idle by the worker that admits, both while other workers evaluate. What
/// is loaded of a unit is what its next run would read, because nobody writes the unit's
/// rows between: none of its runs is under way and none of its rows is pending.
///
/// What a run finds does not depend on the timers of the write-behind cache: the cache is
/// asked by unit, and when a run begins, the cache holds no row of its unit, because all
/// rows of the unit come from runs before it, and those were flushed. Whether they had
/// reached the disk earlier, when the cache's own thread woke up, makes no difference
/// then. Rows of other units are never an answer to its questions.
///
/// What no thread could be started for, the thread that submits does within Submit and Drain;
/// it delivers there and within Finish.
///
/// Memory is needed to submit, which says so by an exception, to admit (lacksMemory), and to
/// load ahead, which is left out without it; the threads themselves take none.
///
/// Any thread may call Stop; Submit, AwaitAdmitted, Drain and Finish belong to one thread.
class RunScheduler {
 public:
  struct Limits {
    unsigned threads = 1;             // that work; 0: none is started
    std::size_t runs = 4096;          // submitted and not yet delivered
    std::size_t bytes = 256U << 20U;  // of their lines; one batch is always let in
    // As many bytes are enough, if they are of as many runs: what waits for less long is still
    // in the processor's cache. Where flushes lie between runs, many units should wait for one.
    std::size_t enoughBytes = bytes;
    std::size_t enoughRuns = 1;
    // So many pending values are flushed while others evaluate: about ten transactions, of
    // which a shorter last one costs little.
    std::size_t valuesWorthAFlush = 6000;
  };

  RunScheduler(RunWork& work, const Limits& limits);
  /// Stops and waits for the threads.
  ~RunScheduler();
  RunScheduler(const RunScheduler&) = delete;
  RunScheduler& operator=(const RunScheduler&) = delete;

  /// How many working threads could be started, of as many as were wanted; 0: none.
  unsigned workers() const noexcept { return static_cast<unsigned>(workers_.size()); }
  /// Why there are not all of them; empty when there are.
  const std::string& startFault() const noexcept { return startFault_; }

  /// Takes a batch over; waits while the limits are reached. False when no more is taken: after
  /// Stop, when Admit said so, and for want of memory to admit; the batch is dropped then.
  [[nodiscard]] bool Submit(std::unique_ptr<InputBatch> batch);
  /// Returns when all that was submitted is admitted, or will never be.
  void AwaitAdmitted();
  /// Begins no run after the latest that has been begun, so that what is evaluated is
  /// the beginning of the input; what was submitted beyond is dropped.
  void Stop();
  /// No more runs will come: returns when all are evaluated (not yet delivered).
  void Drain();
  /// Returns when all are delivered, too.
  void Finish();

  /// Lines and runs that Stop has dropped.
  std::uint64_t dropped() const;
  /// Whether the rest was dropped because memory was too short to admit it.
  bool lacksMemory() const;

 private:
  void StartThreads();
  void Work();
  void DeliverAll();
  bool DeliverReady() KS_REQUIRES(mutex_);
  bool HelpOut() KS_REQUIRES(mutex_);
  bool PerformNext() KS_REQUIRES(mutex_);
  bool IsFlushDue() const KS_REQUIRES(mutex_);
  void PerformRead() KS_REQUIRES(mutex_);
  void PerformAdmission() KS_REQUIRES(mutex_);
  bool Enqueue(InputBatch& batch) KS_REQUIRES(mutex_);
  void PerformRuns() KS_REQUIRES(mutex_);
  void NoteDone() KS_REQUIRES(mutex_);
  void PerformFlush() KS_REQUIRES(mutex_);
  void FlushAndLoad(const std::string& domain, UnitQueues::Unit* units) KS_REQUIRES(mutex_);
  void LoadIdleUnits(const InputBatch& batch) KS_EXCLUDES(mutex_);
  bool IsFull() const KS_REQUIRES(mutex_);
  /// Whether nothing is read or admitted any more.
  bool IsEnded() const KS_REQUIRES(mutex_) { return isStopped_ || isRefused_ || lacksMemory_; }
  bool IsAllAdmitted() const KS_REQUIRES(mutex_) {
    return !isAdmitting_ && (batches_.empty() || IsEnded());
  }

  RunWork& work_;
  const Limits limits_;

  mutable Mutex mutex_;      // guards all below; nothing else is taken or done while it is held
  Condition workComes_;      // something to do, or the end
  Condition deliveryComes_;  // the earliest run is done, or the end
  Condition roomComes_;      // a run was delivered, a batch admitted, or the end
  std::deque<std::unique_ptr<InputBatch>> batches_ KS_GUARDED_BY(mutex_);  // not yet admitted
  std::size_t nextToRead_ KS_GUARDED_BY(mutex_) = 0;                       // of these
  UnitQueues queues_ KS_GUARDED_BY(mutex_);
  std::deque<std::unique_ptr<Run>> undelivered_ KS_GUARDED_BY(mutex_);  // in input order
  std::size_t heldRuns_ KS_GUARDED_BY(mutex_) = 0;                      // lines, too
  std::size_t heldBytes_ KS_GUARDED_BY(mutex_) = 0;
  std::chrono::steady_clock::time_point nextDelivery_ KS_GUARDED_BY(mutex_);
  std::uint64_t dropped_ KS_GUARDED_BY(mutex_) = 0;
  bool isAdmitting_ KS_GUARDED_BY(mutex_) = false;
  bool isStopped_ KS_GUARDED_BY(mutex_) = false;
  bool isRefused_ KS_GUARDED_BY(mutex_) = false;  // Admit wants no more
  bool lacksMemory_ KS_GUARDED_BY(mutex_) = false;
  bool isClosed_ KS_GUARDED_BY(mutex_) = false;
  bool isShared_ KS_GUARDED_BY(mutex_) = false;  // there is more than one worker

  std::vector<std::unique_ptr<Run>> delivering_;  // of whoever delivers
  std::vector<std::thread> workers_;
  std::thread deliverer_;
  std::string startFault_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RUN_SCHEDULER_H
