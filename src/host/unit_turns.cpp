#include "host/unit_turns.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <utility>

#include "base/threads/fork_gate.h"
#include "base/threads/thread_number.h"
#include "host/call_guard.h"
#include "keelstone/mutex.h"

namespace keelstone {

namespace {

struct Waiter {
  std::uint64_t thread = 0;
  bool hasTurn = false;
  Condition comes;
};

struct Unit {
  std::string name;
  std::uint64_t holder = 0;  // a thread
  std::deque<Waiter*> waiting;
};

}  // namespace

struct UnitTurns::State {
  bool WouldWaitForItself(const Unit& unit, std::uint64_t thread) const KS_REQUIRES(mutex);

  std::atomic<bool> isAbandoned{false};  // by the child of a fork, where it is the parent's
  mutable Mutex mutex;                   // guards what follows; innermost
  std::unordered_map<std::string, Unit> units KS_GUARDED_BY(mutex);           // that somebody has
  std::unordered_map<std::uint64_t, const Unit*> waits KS_GUARDED_BY(mutex);  // by thread
};

/// Each thread waits for one unit at most, and each unit has one holder. Who gets a unit does not
/// wait for any, so that a circle can only be closed by a thread that begins to wait.
bool UnitTurns::State::WouldWaitForItself(const Unit& unit, std::uint64_t thread) const {
  for (const Unit* next = &unit; next->holder != thread;) {
    const auto wait = waits.find(next->holder);
    if (wait == waits.end()) return false;
    next = wait->second;
  }
  return true;
}

UnitTurns::UnitTurns() : state_(std::make_shared<State>()) {}

UnitTurns& UnitTurns::Instance() {
  static UnitTurns* const instance = [] {
    auto* const made = new UnitTurns;
    // Kept for ever: a thread that is not in the child may have its mutex there.
    ForkGate::InChild(
        [](void* turns) {
          auto& state = static_cast<UnitTurns*>(turns)->state_;
          state->isAbandoned.store(true);
          new std::shared_ptr<State>(std::exchange(state, std::make_shared<State>()));
        },
        made);
    return made;
  }();
  return *instance;
}

UnitTurns::Turn UnitTurns::Take(const std::string& unit) {
  State& state = *state_;
  Waiter waiter;
  waiter.thread = ThreadNumber();
  Unit* place = nullptr;
  {
    const MutexLock lock(state.mutex);
    const auto [found, isNew] = state.units.try_emplace(unit);
    place = &found->second;
    if (isNew) {
      place->name = unit;
      place->holder = waiter.thread;
      return Turn(state_, place);
    }
    if (state.WouldWaitForItself(*place, waiter.thread)) {
      throw HostFailure(DomainFault::Kind::kState,
                        "the run would wait for one of its unit (device, source, parameter) that "
                        "this thread has evaluated and neither stored nor discarded");
    }
    place->waiting.push_back(&waiter);
    try {
      state.waits.emplace(waiter.thread, place);
    } catch (...) {
      place->waiting.pop_back();
      throw;
    }
  }
  const ForkGate::Outside outside;  // left last: nobody enters with the mutex
  const MutexLock lock(state.mutex);
  while (!waiter.hasTurn) waiter.comes.Wait(state.mutex);
  return Turn(state_, place);
}

std::size_t UnitTurns::WaitingFor(const std::string& unit) const {
  const MutexLock lock(state_->mutex);
  const auto found = state_->units.find(unit);
  return found == state_->units.end() ? 0 : found->second.waiting.size();
}

UnitTurns::Turn& UnitTurns::Turn::operator=(Turn&& other) noexcept {
  if (this == &other) return *this;
  GiveBack();
  state_ = std::move(other.state_);
  unit_ = other.unit_;
  return *this;
}

void UnitTurns::Turn::GiveBack() noexcept {
  const std::shared_ptr<State> state = std::exchange(state_, nullptr);
  if (!state || state->isAbandoned.load()) return;
  Unit& unit = *static_cast<Unit*>(unit_);
  const MutexLock lock(state->mutex);
  if (unit.waiting.empty()) {
    state->units.erase(state->units.find(unit.name));
    return;
  }
  Waiter& next = *unit.waiting.front();
  unit.waiting.pop_front();
  unit.holder = next.thread;
  state->waits.erase(next.thread);
  next.hasTurn = true;
  next.comes.NotifyOne();  // with the lock: the waiter goes once it has it
}

}  // namespace keelstone
