#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/support/points.h"

namespace keelstone::testing {
namespace {

template <class T>
std::shared_ptr<KSNumercialDataFeature<T>> Calculated(const std::vector<T>& values) {
  return FeatureOf<T>(HistoryOf(values));
}

TEST(IntFeature, DifferencesWrapAround) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  const auto up = Calculated<std::int64_t>({kLeast, kMost});
  EXPECT_EQ(up->negativeDeltaCount, 1);
  EXPECT_EQ(up->lastNegativeDelta, -1);
  EXPECT_EQ(up->maxDelta, 0);
  const auto down = Calculated<std::int64_t>({kMost, kLeast});
  EXPECT_EQ(down->negativeDeltaCount, 0);
  EXPECT_EQ(down->maxDelta, 1);
  EXPECT_EQ(down->maxValue, kMost);
  EXPECT_EQ(down->minValue, kLeast);
}

TEST(IntFeature, MeanGoesThroughSinglePrecision) {
  // 16777217 has one bit more than single precision holds.
  EXPECT_EQ(Calculated<std::int64_t>({16777217, 16777217})->mean, 16777216.0);
  // Then every value lies above the mean; the deviation shows it.
  EXPECT_GT(Calculated<std::int64_t>({16777217, 16777217})->std, 1.0);
  // And here below it: the terms are negative.
  EXPECT_TRUE(std::isnan(Calculated<std::int64_t>({16777219, 16777219})->std));
}

}  // namespace
}  // namespace keelstone::testing
