#ifndef KEELSTONE_BINDINGS_C_HANDLE_TABLE_H
#define KEELSTONE_BINDINGS_C_HANDLE_TABLE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "base/threads/fork_gate.h"
#include "bindings/c/call.h"
#include "keelstone/mutex.h"

namespace keelstone::c {

/// Says for every handle that a host may come with whether it is open: handles are numbers
/// that no table gives out twice, and are never followed. Never destroyed: a thread may
/// still come while the process ends. A forked child begins with none. Any thread.
template <class Handle, class Object>
class HandleTable {
 public:
  static HandleTable& Instance() {
    static HandleTable* const instance = [] {
      auto* const made = new HandleTable;
      ForkGate::InChild([](void* table) { static_cast<HandleTable*>(table)->Forget(); }, made);
      return made;
    }();
    return *instance;
  }

  Handle* Open(std::shared_ptr<Object> object) {
    // Numbers of other tables differ in their lowest digits; none looks like an address.
    const std::uintptr_t number = next_.fetch_add(1) * kStep + Object::kHandleDigit;
    Shard& shard = ShardOf(number);
    const MutexLock lock(shard.mutex);
    shard.objects.emplace(number, std::move(object));
    return reinterpret_cast<Handle*>(number);  // NOLINT(performance-no-int-to-ptr)
  }

  /// The open object; Failure when there is none.
  std::shared_ptr<Object> Find(const Handle* handle) {
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    Shard& shard = ShardOf(number);
    const MutexLock lock(shard.mutex);
    const auto found = shard.objects.find(number);
    if (found == shard.objects.end()) ThrowNotOpen(handle);
    return found->second;
  }

  void Close(const Handle* handle) {
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    std::shared_ptr<Object> closed;  // dies after the lock
    Shard& shard = ShardOf(number);
    const MutexLock lock(shard.mutex);
    const auto found = shard.objects.find(number);
    if (found == shard.objects.end()) ThrowNotOpen(handle);
    closed = std::move(found->second);
    shard.objects.erase(found);
  }

 private:
  void Forget() {
    for (Shard& shard : shards_) {
      const MutexLock lock(shard.mutex);
      // What they hold is the parent's to give back, and may need locks that are not free here.
      parents_.push_back(std::exchange(shard.objects, {}));
    }
    firstOfProcess_.store(next_.load());
  }

  static constexpr std::uintptr_t kStep = 16;

  using Objects = std::unordered_map<std::uintptr_t, std::shared_ptr<Object>>;
  struct Shard {
    Mutex mutex;  // guards objects; innermost
    Objects objects KS_GUARDED_BY(mutex);
  };

  Shard& ShardOf(std::uintptr_t number) { return shards_[number / kStep % shards_.size()]; }

  [[noreturn]] void ThrowNotOpen(const Handle* handle) {
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    if (number % kStep == Object::kHandleDigit && number / kStep < firstOfProcess_.load()) {
      throw Failure(KS_USAGE, Object::kHandleName + std::string(" is from before fork()"));
    }
    throw Failure(
        KS_ERROR_HANDLE,
        Object::kHandleName + std::string(handle == nullptr ? " is null" : " is not open"));
  }

  std::atomic<std::uintptr_t> next_{1};
  std::atomic<std::uintptr_t> firstOfProcess_{0};  // those below it were a parent's
  std::array<Shard, 16> shards_;
  std::list<Objects> parents_;  // of the processes before this one
};

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_HANDLE_TABLE_H
