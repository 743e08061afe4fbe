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

template <class T>
class NumericFeature : public ::testing::Test {};
TYPED_TEST_SUITE(NumericFeature, NumericTypes);

TYPED_TEST(NumericFeature, CountsDifferencesAndExtremes) {
  const auto feature = Calculated<TypeParam>(
      {TypeParam(5), TypeParam(5), TypeParam(7), TypeParam(3), TypeParam(1), TypeParam(2)});
  EXPECT_EQ(feature->count, 6);
  EXPECT_EQ(feature->zeroDeltaCount, 1);
  EXPECT_EQ(feature->negativeDeltaCount, 2);
  EXPECT_EQ(feature->lastNegativeDelta, -2);
  EXPECT_EQ(feature->maxDelta, 2);
  EXPECT_EQ(feature->maxValue, TypeParam(7));
  EXPECT_EQ(feature->minValue, TypeParam(1));
  EXPECT_EQ(feature->lastPoint.value, TypeParam(2));
  EXPECT_EQ(feature->points.size(), 6U);
  EXPECT_EQ(feature->valueCounts.size(), 5U);
  EXPECT_EQ(feature->valueCounts.at(TypeParam(5)), 2);
  // The sum is 23; the squared deviations sum up to 113 - 23² / 6.
  EXPECT_EQ(feature->mean, static_cast<double>(static_cast<float>(23.0 / 6)));
  EXPECT_NEAR(feature->std, std::sqrt((113 - 529.0 / 6) / 6), 1e-6);
}

TYPED_TEST(NumericFeature, RefusesAHistoryOfAnotherType) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, float>, double, float>;
  KSNumercialDataFeature<TypeParam> feature;
  EXPECT_FALSE(feature.Calculate(HistoryOf<Other>({Other(1)})));
  EXPECT_FALSE(feature.Calculate(nullptr));
  EXPECT_EQ(feature.count, 0);
}

TYPED_TEST(NumericFeature, AccumulatesWhenCalculatedTwice) {
  const auto history = HistoryOf<TypeParam>({TypeParam(2), TypeParam(2), TypeParam(1)});
  const auto feature = FeatureOf<TypeParam>(history);
  EXPECT_TRUE(feature->Calculate(history));
  EXPECT_EQ(feature->count, 3);
  EXPECT_EQ(feature->zeroDeltaCount, 2);
  EXPECT_EQ(feature->negativeDeltaCount, 2);
  EXPECT_EQ(feature->valueCounts.at(TypeParam(2)), 4);
  EXPECT_EQ(feature->points.size(), 3U);
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
