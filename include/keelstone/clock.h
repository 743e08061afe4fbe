#ifndef KEELSTONE_CLOCK_H
#define KEELSTONE_CLOCK_H

#include <cstdint>

#include "keelstone/export.h"

namespace keelstone {

/// The wall clock of the system. Any thread.
class KEELSTONE_EXPORT Clock {
 public:
  /// UTC in milliseconds since the epoch.
  static std::int64_t LocalUtcMsecTime();
  /// UTC in seconds since the epoch.
  static std::int64_t NowSeconds() { return LocalUtcMsecTime() / 1000; }

  /// Puts `source` (milliseconds since the epoch) in the clock's place; nullptr gives the
  /// system's clock back. For tests and simulations.
  using Source = std::int64_t (*)();
  static void SetSource(Source source);
};

}  // namespace keelstone

#endif  // KEELSTONE_CLOCK_H
