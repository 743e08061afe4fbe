#ifndef KEELSTONE_HOST_SHARED_STORE_H
#define KEELSTONE_HOST_SHARED_STORE_H

#include <atomic>
#include <cstddef>

#include "keelstone/resident_store.h"

namespace keelstone {

/// The units in memory of all domains that are open in this process. Never destroyed: what
/// cannot be written stays and is tried again. Any thread.
class SharedStore {
 public:
  static SharedStore& Instance();

  /// For a run; nullptr where runs are to do without. As long as units are there, they do not.
  ResidentStore* ForRun();
  void SetBudget(std::size_t bytes);
  /// Gives the memory of all units back that are written.
  void LetGo() { store_.LetGo(); }

 private:
  static constexpr std::size_t kBudget = std::size_t{256} << 20U;

  std::atomic<std::size_t> budget_{kBudget};
  ResidentStore store_{kBudget};
};

}  // namespace keelstone

#endif  // KEELSTONE_HOST_SHARED_STORE_H
