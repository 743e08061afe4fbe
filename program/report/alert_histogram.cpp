#include "program/report/alert_histogram.h"

#include <cstddef>

namespace keelstone::host {

namespace {

constexpr std::size_t kSpans = 240;

std::int64_t SpanStart(std::int64_t time, std::int64_t width) {
  const std::int64_t over = time % width;
  return time - (over < 0 ? over + width : over);
}

}  // namespace

void AlertHistogram::Add(std::int64_t time) {
  ++counts_[SpanStart(time, width_)];
  while (counts_.size() > kSpans || (counts_.rbegin()->first - counts_.begin()->first) / width_ >=
                                        static_cast<std::int64_t>(kSpans)) {
    width_ *= 2;
    std::map<std::int64_t, std::uint64_t> wider;
    for (const auto& [start, count] : counts_) wider[SpanStart(start, width_)] += count;
    counts_.swap(wider);
  }
}

}  // namespace keelstone::host
