#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/numeric_kinds.h"

namespace keelstone::testing {
namespace {

template <class T>
std::shared_ptr<KSNumercialDataFeature<T>> Calculated(const std::vector<T>& values) {
  return FeatureOf<T>(HistoryOf(SeenValues(values)));
}

template <class T>
class NumericFeature : public ::testing::Test {};
TYPED_TEST_SUITE(NumericFeature, NumericTypes);

TYPED_TEST(NumericFeature, OfOnePoint) {
  const auto feature = Calculated<TypeParam>({TypeParam(7)});
  EXPECT_EQ(feature->count, 1);
  EXPECT_EQ(feature->zeroDeltaCount, 0);
  EXPECT_EQ(feature->negativeDeltaCount, 0);
  EXPECT_EQ(feature->maxDelta, 0);
  EXPECT_EQ(feature->mean, 7);
  EXPECT_EQ(feature->std, 0);
  EXPECT_EQ(feature->lastPoint.time, 1001);
  EXPECT_EQ(feature->lastPoint.value, TypeParam(7));
}

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

TYPED_TEST(NumericFeature, OfFallingValuesHasNoLargestRise) {
  const auto feature = Calculated<TypeParam>({TypeParam(9), TypeParam(5), TypeParam(-4)});
  EXPECT_EQ(feature->maxDelta, 0);
  EXPECT_EQ(feature->lastNegativeDelta, -9);
}

TYPED_TEST(NumericFeature, OfNothingStaysAsItIs) {
  KSNumercialDataFeature<TypeParam> feature;
  EXPECT_TRUE(feature.Calculate(HistoryOf<TypeParam>({})));
  EXPECT_EQ(feature.count, 0);
  EXPECT_EQ(feature.lastPoint.time, -1);
  EXPECT_EQ(feature.std, 0);
  EXPECT_TRUE(feature.valueCounts.empty());
}

TYPED_TEST(NumericFeature, RefusesAHistoryOfAnotherType) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, float>, double, float>;
  KSNumercialDataFeature<TypeParam> feature;
  EXPECT_FALSE(feature.Calculate(HistoryOf(SeenValues<Other>({Other(1)}))));
  EXPECT_FALSE(feature.Calculate(nullptr));
  EXPECT_EQ(feature.count, 0);
}

TYPED_TEST(NumericFeature, AccumulatesWhenCalculatedTwice) {
  const auto history = HistoryOf(SeenValues<TypeParam>({TypeParam(2), TypeParam(2), TypeParam(1)}));
  const auto feature = FeatureOf<TypeParam>(history);
  EXPECT_TRUE(feature->Calculate(history));
  EXPECT_EQ(feature->count, 3);
  EXPECT_EQ(feature->zeroDeltaCount, 2);
  EXPECT_EQ(feature->negativeDeltaCount, 2);
  EXPECT_EQ(feature->valueCounts.at(TypeParam(2)), 4);
  EXPECT_EQ(feature->points.size(), 3U);
}

TYPED_TEST(NumericFeature, AroundZeroHasNoDeviation) {
  EXPECT_TRUE(std::isnan(Calculated<TypeParam>({TypeParam(-3), TypeParam(3)})->std));
  EXPECT_TRUE(std::isnan(Calculated<TypeParam>({TypeParam(0), TypeParam(0)})->std));
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

TEST(RealFeature, SmallDifferencesCountAsZero) {
  // A difference of exactly the tolerance still is zero.
  const auto same = Calculated<double>({0.0, 1e-5, 0.0});
  EXPECT_EQ(same->zeroDeltaCount, 2);
  EXPECT_EQ(same->maxDelta, 0);
  EXPECT_EQ(same->valueCounts.size(), 2U);
  const auto other = Calculated<double>({0.0, 1.1e-5, 0.0});
  EXPECT_EQ(other->zeroDeltaCount, 0);
  EXPECT_EQ(other->negativeDeltaCount, 1);
  EXPECT_EQ(other->maxDelta, 1.1e-5);

  const auto floats = Calculated<float>({0.0F, 1e-5F, 0.0F});
  EXPECT_EQ(floats->zeroDeltaCount, 2);
  // As doubles these lie 2e-13 farther apart than the single-precision tolerance.
  const auto beyond = Calculated<float>({0.0F, std::nextafter(1e-5F, 1.0F)});
  EXPECT_EQ(beyond->zeroDeltaCount, 0);
}

TEST(RealFeature, ALargerRiseCountsOnlyBeyondTheTolerance) {
  const auto feature = Calculated<double>({0.0, 1.0, 2.000009, 3.1});
  EXPECT_EQ(feature->maxDelta, 3.1 - 2.000009);
  EXPECT_EQ(Calculated<double>({0.0, 1.0, 2.000009})->maxDelta, 1.0);
}

TEST(RealFeature, ExtremesFollowValuesWithinTheTolerance) {
  const auto feature = Calculated<double>({5.0, 5.0 - 9e-6, 5.0 - 1.8e-5, 1.0, 1.0 + 9e-6});
  EXPECT_EQ(feature->maxValue, 5.0 - 1.8e-5);
  EXPECT_EQ(feature->minValue, 1.0 + 9e-6);
}

TEST(RealFeature, ValuesBeyondSinglePrecisionHaveNoFiniteMean) {
  const auto feature = Calculated<double>({1e300, 1e300});
  EXPECT_TRUE(std::isinf(feature->mean));
  EXPECT_TRUE(std::isnan(feature->std));
  EXPECT_EQ(feature->maxValue, 1e300);
}

}  // namespace
}  // namespace keelstone::testing
