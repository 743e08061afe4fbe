#ifndef KEELSTONE_MODEL_HISTORY_HISTORY_STEPS_H
#define KEELSTONE_MODEL_HISTORY_HISTORY_STEPS_H

#include <cmath>
#include <cstdint>
#include <vector>

/// The steps over a history that rules of every type share: numbers, strings and tables.
namespace keelstone {

/// The newest point whose value stands `k` times in a row, itself the newest of them;
/// k below 2 takes the newest point. nullptr when there is no such run.
template <class Point>
const Point* NewestStablePoint(const std::vector<Point>& points, std::int32_t k) {
  const Point* newestOfRun = nullptr;
  std::int32_t length = 0;
  for (auto point = points.rbegin(); point != points.rend(); ++point) {
    if (newestOfRun == nullptr || !(point->value == newestOfRun->value)) {
      newestOfRun = &*point;
      length = 0;
    }
    if (++length >= k) return newestOfRun;
  }
  return nullptr;
}

/// The newest point whose value `fits`; nullptr when none does.
template <class Point, class Predicate>
const Point* NewestFittingPoint(const std::vector<Point>& points, Predicate fits) {
  for (auto point = points.rbegin(); point != points.rend(); ++point) {
    if (fits(point->value)) return &*point;
  }
  return nullptr;
}

/// Fills `values` with the values that are frequent: whose count, divided by the number
/// of distinct values, exceeds `ratio` by more than 1e-6. A ratio of (nearly) 0 asks for
/// none: `values` stays empty.
template <class Counts, class Set>
void FrequentValues(const Counts& counts, double ratio, Set& values) {
  values.clear();
  if (std::fabs(ratio) < 1e-5) return;
  const auto distinct = static_cast<double>(counts.size());
  for (const auto& [value, count] : counts) {
    if (count / distinct - ratio > 1e-6) values.insert(values.end(), value);
  }
}

/// How many distinct values occur more than `threshold` times (by more than 1e-6).
template <class Counts>
std::int32_t CountOccurringMoreThan(const Counts& counts, double threshold) {
  std::int32_t number = 0;
  for (const auto& [value, count] : counts) {
    if (count - threshold > 1e-6) ++number;
  }
  return number;
}

/// Whether more than `limit` distinct values occur more than `threshold` times.
template <class Counts>
bool HasMoreOccurring(const Counts& counts, double threshold, std::int32_t limit) {
  // Where once is enough, every distinct value counts.
  if (1 - threshold > 1e-6) return counts.HasMoreThan(limit);
  return CountOccurringMoreThan(counts, threshold) > limit;
}

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_HISTORY_STEPS_H
