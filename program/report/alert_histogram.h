#ifndef KEELSTONE_PROGRAM_REPORT_ALERT_HISTOGRAM_H
#define KEELSTONE_PROGRAM_REPORT_ALERT_HISTOGRAM_H

#include <cstdint>
#include <map>

namespace keelstone::host {

/// How many alerts fell into each of a bounded number of equal spans of time.
class AlertHistogram {
 public:
  void Add(std::int64_t time);
  /// Seconds of a span; a power of two.
  std::int64_t width() const noexcept { return width_; }
  /// Alerts by the start of their span.
  const std::map<std::int64_t, std::uint64_t>& counts() const noexcept { return counts_; }

 private:
  std::int64_t width_ = 1;
  std::map<std::int64_t, std::uint64_t> counts_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_ALERT_HISTOGRAM_H
