#ifndef KEELSTONE_PERFORMANCE_H
#define KEELSTONE_PERFORMANCE_H

#include <cstdint>
#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// Measures a scope and logs "<class> :: <function> Cost <ms> ms. <extra>" (module
/// "Performance", level 1) when it ends, however short it was. Nested scopes log the
/// innermost first. While level 1 is off it neither reads the clock nor formats.
class KEELSTONE_EXPORT FSPerformance {
 public:
  FSPerformance(std::string classLabel, std::string functionLabel, std::string extra = {});
  ~FSPerformance();
  FSPerformance(const FSPerformance&) = delete;
  FSPerformance& operator=(const FSPerformance&) = delete;

 private:
  std::string classLabel_;
  std::string functionLabel_;
  std::string extra_;
  std::int64_t start_;  // nanoseconds of the steady clock; -1 when the level was off
};

}  // namespace keelstone

#endif  // KEELSTONE_PERFORMANCE_H
