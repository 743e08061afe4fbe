#include "host/shared_store.h"

namespace keelstone {

SharedStore& SharedStore::Instance() {
  static SharedStore* const instance = new SharedStore;
  return *instance;
}

ResidentStore* SharedStore::ForRun() {
  return budget_.load() > 0 || store_.units() > 0 ? &store_ : nullptr;
}

void SharedStore::SetBudget(std::size_t bytes) {
  budget_.store(bytes);
  store_.SetBudget(bytes);
}

}  // namespace keelstone
