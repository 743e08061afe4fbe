#ifndef KEELSTONE_TESTS_SUPPORT_NUMERIC_KINDS_H
#define KEELSTONE_TESTS_SUPPORT_NUMERIC_KINDS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/ksdatafeature.h"
#include "model/kshistorydata.h"
#include "tests/support/second_reading.h"

namespace keelstone::testing {

/// What a typed test needs to know of a value type.
template <class T>
struct Kind;

template <>
struct Kind<std::int64_t> {
  using History = IntHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataInt64;
};
template <>
struct Kind<float> {
  using History = FloatHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataFloat;
};
template <>
struct Kind<double> {
  using History = DoubleHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataDouble;
};

using NumericTypes = ::testing::Types<std::int64_t, float, double>;

template <class T>
std::shared_ptr<KSDataBase> PointOf(std::int64_t time, T value) {
  return std::make_shared<KSDataPoint<T>>(time, value);
}

/// The values seen at the times 1001, 1002, …
template <class T>
std::vector<plain::Seen<T>> SeenValues(const std::vector<T>& values) {
  std::vector<plain::Seen<T>> seen;
  for (const T value : values) {
    seen.push_back({1001 + static_cast<std::int64_t>(seen.size()), value});
  }
  return seen;
}

template <class T>
std::shared_ptr<HistoryDataBase> HistoryOf(const std::vector<plain::Seen<T>>& seen) {
  auto history = std::make_shared<typename Kind<T>::History>();
  for (const auto& [time, value] : seen) history->AddData(PointOf(time, value), 1 << 30);
  return history;
}

template <class T>
std::shared_ptr<KSNumercialDataFeature<T>> FeatureOf(
    const std::shared_ptr<HistoryDataBase>& history) {
  auto feature = std::make_shared<KSNumercialDataFeature<T>>();
  EXPECT_TRUE(feature->Calculate(history));
  return feature;
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_NUMERIC_KINDS_H
