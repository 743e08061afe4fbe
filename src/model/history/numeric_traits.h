#ifndef KEELSTONE_MODEL_HISTORY_NUMERIC_TRAITS_H
#define KEELSTONE_MODEL_HISTORY_NUMERIC_TRAITS_H

#include <cmath>
#include <cstdint>
#include <string>

#include "base/text/numbers.h"
#include "keelstone/history_data.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// floor(x), and one more when the fraction is at least a half.
template <class Real>
Real RoundHalfUp(Real x) {
  const Real whole = std::floor(x);
  return x - whole >= Real(0.5) ? whole + Real(1) : whole;
}

/// What differs between the three value types. `Real` is what bounds are computed in.
template <class T>
struct NumericTraits;

template <>
struct NumericTraits<std::int64_t> {
  using Real = double;
  using History = IntHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataInt64;

  static std::int64_t Read(const JsonValue& value) { return value.asInt64(); }
  static void Append(std::string& text, std::int64_t value) { AppendNumber(text, value); }
  static std::int64_t Difference(std::int64_t a, std::int64_t b) {
    return WrappingDifference(a, b);
  }
  static bool IsZero(std::int64_t difference) { return difference == 0; }
  static bool IsNegative(std::int64_t difference) { return difference < 0; }
  static bool Exceeds(std::int64_t difference, double most) {
    return static_cast<double>(difference) - most > 0;
  }
  static bool IsNewMax(std::int64_t value, std::int64_t most) { return value > most; }
  static bool IsNewMin(std::int64_t value, std::int64_t least) { return value < least; }
  static std::int64_t RoundBound(double bound) { return SaturateToInt64(RoundHalfUp(bound)); }
  static std::int64_t RoundValue(std::int64_t value) { return value; }
  static bool IsLowerReplaced(std::int64_t lower) { return lower < 1; }
};

/// Floats and doubles: a tolerance, and bounds with two decimals. Every step is made in
/// the type itself.
template <class T>
struct RealTraits {
  using Real = T;
  static constexpr T kTolerance = T(1e-5);

  static T Difference(T a, T b) { return a - b; }
  static bool IsZero(T difference) { return std::fabs(difference) <= kTolerance; }
  static bool IsNegative(T difference) { return difference < kTolerance; }
  static bool Exceeds(T difference, double most) {
    return difference - static_cast<T>(most) > kTolerance;
  }
  // A value within the tolerance of the extreme replaces it too.
  static bool IsNewMax(T value, T most) { return most - value < kTolerance; }
  static bool IsNewMin(T value, T least) { return value - least < kTolerance; }
  static T RoundBound(T bound) {
    const T scaled = bound * T(100);
    return std::isfinite(scaled) ? RoundHalfUp(scaled) / T(100) : bound;
  }
  static T RoundValue(T value) { return RoundBound(value); }
  static bool IsLowerReplaced(T lower) { return lower <= T(0); }
};

template <>
struct NumericTraits<float> : RealTraits<float> {
  using History = FloatHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataFloat;

  static float Read(const JsonValue& value) {
    const float number = value.asFloat();
    if (!std::isfinite(number)) throw JsonError("a number beyond single precision");
    return number;
  }
  static void Append(std::string& text, float value) { AppendNumber(text, value); }
};

template <>
struct NumericTraits<double> : RealTraits<double> {
  using History = DoubleHistoryData;
  static constexpr EnumKSDataType kDataType = KSDataDouble;

  static double Read(const JsonValue& value) { return value.asDouble(); }
  static void Append(std::string& text, double value) { AppendNumber(text, value); }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_NUMERIC_TRAITS_H
