#ifndef KEELSTONE_BASE_THREADS_THREAD_NUMBER_H
#define KEELSTONE_BASE_THREADS_THREAD_NUMBER_H

#include <atomic>
#include <cstdint>

namespace keelstone {

/// A number of this thread that no other thread of the process has or had, never 0.
inline std::uint64_t ThreadNumber() noexcept {
  static std::atomic<std::uint64_t> last{0};
  thread_local const std::uint64_t own = ++last;
  return own;
}

}  // namespace keelstone

#endif  // KEELSTONE_BASE_THREADS_THREAD_NUMBER_H
