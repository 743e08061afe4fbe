#include "keelstone/data_feature.h"

#include <cmath>

#include "model/history/numeric_traits.h"

namespace keelstone {

KSDataFeature::~KSDataFeature() = default;

template <class T>
bool KSNumercialDataFeature<T>::Calculate(const std::shared_ptr<HistoryDataBase>& history) {
  const auto* const numbers = dynamic_cast<const NumercialHistoryData<T>*>(history.get());
  if (numbers == nullptr) return false;
  points = numbers->points();
  count = static_cast<std::int32_t>(points.size());
  if (count == 0) return true;

  const double sum = SumFirstPass();
  lastPoint = points.back();
  SecondPass(sum);
  return true;
}

template <class T>
void KSNumercialDataFeature<T>::Clear() noexcept {
  count = zeroDeltaCount = negativeDeltaCount = 0;
  mean = std = maxDelta = lastNegativeDelta = 0.0;
  maxValue = minValue = T{};
  lastPoint = {};
  valueCounts.Clear();
  points.clear();
}

template <class T>
double KSNumercialDataFeature<T>::SumFirstPass() {
  using Traits = NumericTraits<T>;
  T previous = points.front().value;
  double sum = static_cast<double>(previous);
  valueCounts.Reserve(points.size());
  valueCounts.Add(previous);
  for (std::size_t i = 1; i < points.size(); ++i) {
    const T value = points[i].value;
    const T difference = Traits::Difference(value, previous);
    sum += static_cast<double>(value);
    if (Traits::IsZero(difference)) {
      ++zeroDeltaCount;
    } else if (Traits::IsNegative(difference)) {
      ++negativeDeltaCount;
      lastNegativeDelta = static_cast<double>(difference);
    }
    if (Traits::Exceeds(difference, maxDelta)) maxDelta = static_cast<double>(difference);
    valueCounts.Add(value);
    previous = value;
  }
  return sum;
}

template <class T>
void KSNumercialDataFeature<T>::SecondPass(double sum) {
  mean = static_cast<double>(NarrowToFloat(sum / count));
  maxValue = minValue = points.front().value;
  double squares = 0.0;
  for (const KSDataPoint<T>& point : points) {
    TakeExtremes(point.value);
    const auto x = static_cast<double>(point.value);
    // x² - mean², in an order that keeps large values from cancelling.
    squares += ((x - mean) / mean) * (x + mean) * mean;
  }
  std = std::sqrt(squares / count);
}

template <class T>
void KSNumercialDataFeature<T>::TakeExtremes(T value) {
  if (NumericTraits<T>::IsNewMax(value, maxValue)) maxValue = value;
  if (NumericTraits<T>::IsNewMin(value, minValue)) minValue = value;
}

template class KSNumercialDataFeature<std::int64_t>;
template class KSNumercialDataFeature<float>;
template class KSNumercialDataFeature<double>;

}  // namespace keelstone
