#include "bench/history_series.h"

#include <cstdlib>

namespace keelstone::bench {

namespace {

constexpr std::int64_t kFloatScale = 10;     // one decimal
constexpr std::int64_t kDoubleScale = 1000;  // three decimals

std::int64_t Between(std::mt19937_64& random, std::int64_t least, std::int64_t most) {
  return std::uniform_int_distribution<std::int64_t>(least, most)(random);
}

/// A whole number that is not negative, with its last digits as decimals.
std::string WithDecimals(std::int64_t value, std::int64_t scale) {
  std::string text = std::to_string(value / scale);
  text += '.';
  return text += std::to_string(value % scale + scale).substr(1);
}

/// What is added at step `i` of a series that does not swing.
std::int64_t Step(EnumRuleType kind, std::size_t i, std::mt19937_64& random) {
  if (kind == kIntIncrease) return Between(random, 1'000, 2'000'000);
  // A constant moves up every third value, which is too often for an equal rule; not
  // after the values of which the first rule is learned, so that nothing is alerted.
  if (kind == kIntConstant) return i % 3 == 2 ? Between(random, 10, 5'000) : 0;
  return 0;
}

}  // namespace

std::vector<std::int64_t> MakeSeries(EnumRuleType kind, std::size_t count,
                                     std::mt19937_64& random) {
  const std::int64_t start = Between(random, 1'000, 90'000'000);
  std::vector<std::int64_t> values;
  values.reserve(count);
  std::int64_t value = start;
  for (std::size_t i = 0; i < count; ++i) {
    if (kind == kIntRange) {
      value = start + Between(random, -start / 10, start / 10);
    } else if (kind == kIntEnum || kind == kStrEnum) {
      // Three states that follow each other, so that most values are a change.
      value = start + 10 * static_cast<std::int64_t>(i % 3);
    } else {
      value += Step(kind, i, random);
    }
    values.push_back(value);
  }
  return values;
}

std::string ValueText(EnumKSDataType dataType, std::int64_t value) {
  if (dataType == KSDataFloat) return WithDecimals(value, kFloatScale);
  if (dataType == KSDataDouble) return WithDecimals(value, kDoubleScale);
  if (dataType == KSDataString) return "Established, area " + std::to_string(value);
  return std::to_string(value);
}

std::shared_ptr<KSDataBase> MakePoint(EnumKSDataType dataType, std::int64_t time,
                                      std::int64_t value) {
  const std::string text = ValueText(dataType, value);
  if (dataType == KSDataFloat) {
    return std::make_shared<KSDataPoint<float>>(time, std::strtof(text.c_str(), nullptr));
  }
  if (dataType == KSDataDouble) {
    return std::make_shared<KSDataPoint<double>>(time, std::strtod(text.c_str(), nullptr));
  }
  if (dataType == KSDataString) return std::make_shared<KSDataPoint<std::string>>(time, text);
  return std::make_shared<KSDataPoint<std::int64_t>>(time, value);
}

}  // namespace keelstone::bench
