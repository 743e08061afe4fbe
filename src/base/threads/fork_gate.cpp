#include "base/threads/fork_gate.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "keelstone/mutex.h"

namespace keelstone {

namespace {

thread_local int depth = 0;          // of nested stays inside
thread_local int callbackDepth = 0;  // of stays outside that began inside

using Steps = std::vector<std::pair<ForkGate::Step, void*>>;

/// Counts the threads that are inside, spread so that threads seldom write the same cache
/// line. They wait on atomics: a condition variable waits in the child for waiters that are
/// not there.
class Gate {
 public:
  static Gate& Instance() {
    static Gate* const instance = new Gate;
    return *instance;
  }

  void Enter() noexcept {
    std::atomic<std::int64_t>& inside = OwnCount();
    while (true) {
      inside.fetch_add(1);
      // Either this sees that the gate is closed, or who closes it sees the addition.
      if (closed_.load() == 0) return;
      Leave();
      closed_.wait(1);
    }
  }

  void Leave() noexcept {
    OwnCount().fetch_sub(1);
    if (closed_.load() == 0) return;
    departures_.fetch_add(1);
    departures_.notify_all();
  }

  void BeforeFork() noexcept KS_NO_THREAD_SAFETY_ANALYSIS {
    if (depth > 0) Leave();
    forks_.Lock();
    closed_.store(1);
    while (callbackDepth == 0) {
      const std::uint32_t seen = departures_.load();
      if (IsEmpty()) break;
      departures_.wait(seen);
    }
    steps_.Lock();
    for (const auto& [step, object] : before_) step(object);
  }

  void AfterFork() noexcept KS_NO_THREAD_SAFETY_ANALYSIS {
    if (depth > 0) OwnCount().fetch_add(1);
    steps_.Unlock();
    closed_.store(0);
    closed_.notify_all();
    forks_.Unlock();
  }

  /// Threads that were inside, or about to be, are not in the child.
  void AfterForkInChild() noexcept KS_NO_THREAD_SAFETY_ANALYSIS {
    for (Count& count : counts_) count.inside.store(0);
    if (callbackDepth > 0) {
      usable_.store(false);
    } else {
      for (const auto& [step, object] : inChild_) step(object);
    }
    AfterFork();
  }

  bool IsUsable() const noexcept { return usable_.load(std::memory_order_relaxed); }

  void AddBefore(ForkGate::Step step, void* object) {
    const MutexLock lock(steps_);
    before_.emplace_back(step, object);
  }

  void AddInChild(ForkGate::Step step, void* object) {
    const MutexLock lock(steps_);
    inChild_.emplace_back(step, object);
  }

 private:
  struct alignas(64) Count {
    std::atomic<std::int64_t> inside{0};
  };

  std::atomic<std::int64_t>& OwnCount() noexcept {
    thread_local const std::size_t own = nextThread_.fetch_add(1) % counts_.size();
    return counts_[own].inside;
  }

  bool IsEmpty() const noexcept {
    for (const Count& count : counts_) {
      if (count.inside.load() != 0) return false;
    }
    return true;
  }

  std::array<Count, 16> counts_;
  std::atomic<std::uint32_t> closed_{0};
  std::atomic<std::uint32_t> departures_{0};
  std::atomic<std::size_t> nextThread_{0};
  std::atomic<bool> usable_{true};
  Mutex forks_;  // held over a fork, so that there is one at a time
  Mutex steps_;  // guards the two below; taken inside forks_, the log's inside it
  Steps before_ KS_GUARDED_BY(steps_);
  Steps inChild_ KS_GUARDED_BY(steps_);
};

[[maybe_unused]] const int registered =
    ::pthread_atfork([] { Gate::Instance().BeforeFork(); }, [] { Gate::Instance().AfterFork(); },
                     [] { Gate::Instance().AfterForkInChild(); });

}  // namespace

ForkGate::Inside::Inside() noexcept {
  if (depth == 0) Gate::Instance().Enter();
  ++depth;
}

ForkGate::Inside::~Inside() {
  if (--depth == 0) Gate::Instance().Leave();
}

ForkGate::Outside::Outside() noexcept : depth_(depth) {
  ++callbackDepth;
  if (depth_ == 0) return;
  depth = 0;
  Gate::Instance().Leave();
}

ForkGate::Outside::~Outside() {
  --callbackDepth;
  if (depth_ == 0) return;
  Gate::Instance().Enter();
  depth = depth_;
}

bool ForkGate::IsUsable() noexcept { return Gate::Instance().IsUsable(); }

void ForkGate::Before(Step step, void* object) { Gate::Instance().AddBefore(step, object); }

void ForkGate::InChild(Step step, void* object) { Gate::Instance().AddInChild(step, object); }

}  // namespace keelstone
