#include "keelstone/clock.h"

#include <atomic>
#include <chrono>

namespace keelstone {

namespace {

std::int64_t SystemMsecTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::atomic<Clock::Source> currentSource{&SystemMsecTime};

}  // namespace

std::int64_t Clock::LocalUtcMsecTime() {
  // Acquire: what a source reads was written before it was set.
  return currentSource.load(std::memory_order_acquire)();
}

void Clock::SetSource(Source source) {
  currentSource.store(source != nullptr ? source : &SystemMsecTime, std::memory_order_release);
}

}  // namespace keelstone
