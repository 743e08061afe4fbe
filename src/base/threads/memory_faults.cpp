#include "keelstone/memory_faults.h"

#include <atomic>

namespace keelstone {

namespace {

thread_local std::uint64_t faultsHere = 0;
std::atomic<std::uint64_t> faults{0};

}  // namespace

void CountMemoryFault() noexcept {
  ++faultsHere;
  faults.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t MemoryFaultsHere() noexcept { return faultsHere; }

std::uint64_t MemoryFaults() noexcept { return faults.load(std::memory_order_relaxed); }

}  // namespace keelstone
