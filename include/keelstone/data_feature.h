#ifndef KEELSTONE_DATA_FEATURE_H
#define KEELSTONE_DATA_FEATURE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "keelstone/data_point.h"
#include "keelstone/export.h"
#include "keelstone/history_data.h"
#include "keelstone/value_counts.h"

namespace keelstone {

/// Statistics over a history, which the learning tests look at. Made fresh and calculated
/// once for each learning attempt. One thread at a time.
class KEELSTONE_EXPORT KSDataFeature {
 public:
  virtual ~KSDataFeature();
  /// False, and no change, when the history is of another type.
  virtual bool Calculate(const std::shared_ptr<HistoryDataBase>& history) = 0;
};

/// Statistics of numbers. Two successive values count as equal when they differ by no
/// more than 1e-5 (floats and doubles) or not at all (int64). A second calculation adds
/// to the counts of the first.
template <class T>
class KEELSTONE_EXPORT KSNumercialDataFeature final : public KSDataFeature {
 public:
  bool Calculate(const std::shared_ptr<HistoryDataBase>& history) override;
  /// As if it had been made just now; it keeps its memory.
  void Clear() noexcept;

  std::int32_t count = 0;
  double mean = 0.0;  // rounded through single precision: the thresholds are tuned on it
  double std = 0.0;   // population standard deviation; can be NaN
  std::int32_t zeroDeltaCount = 0;
  std::int32_t negativeDeltaCount = 0;
  double maxDelta = 0.0;           // largest successive difference, never below 0
  double lastNegativeDelta = 0.0;  // newest negative difference, 0 if none
  T maxValue = T{};
  T minValue = T{};
  KSDataPoint<T> lastPoint;
  ValueCounts<T> valueCounts;
  std::vector<KSDataPoint<T>> points;

 private:
  double SumFirstPass();
  void SecondPass(double sum);
  void TakeExtremes(T value);
};

extern template class KSNumercialDataFeature<std::int64_t>;
extern template class KSNumercialDataFeature<float>;
extern template class KSNumercialDataFeature<double>;

}  // namespace keelstone

#endif  // KEELSTONE_DATA_FEATURE_H
