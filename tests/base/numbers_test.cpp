#include "base/text/numbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

namespace keelstone {
namespace {

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();

template <class T>
std::string Text(T value) {
  std::string text = "x";
  AppendNumber(text, value);
  EXPECT_EQ(text[0], 'x') << "appends, does not replace";
  return text.substr(1);
}

TEST(Numbers, RealsAreWrittenPlainlyInTheMiddleAndWithExponentOutside) {
  const std::pair<double, const char*> cases[] = {
      {15.0, "15.0"},
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {-3.25, "-3.25"},
      {0.1, "0.1"},
      {0.0001, "0.0001"},
      {0.00009999999999999999, "9.999999999999999e-05"},
      {1e-5, "1e-05"},
      {-1.5e-7, "-1.5e-07"},
      {9999999999999998.0, "9999999999999998.0"},
      {9007199254740994.0, "9007199254740994.0"},
      {-9007199254740992.0, "-9007199254740992.0"},
      {123456789012345.67, "123456789012345.67"},
      {1e16, "1e+16"},
      {1.5e300, "1.5e+300"},
      {5e-324, "5e-324"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {std::numeric_limits<double>::infinity(), "null"},
      {-std::numeric_limits<double>::infinity(), "null"},
      {std::numeric_limits<double>::quiet_NaN(), "null"},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(Text(value), expected);
}

std::size_t SignificantDigits(const std::string& number) {
  std::string digits;
  for (const char c : number.substr(0, number.find('e'))) {
    if (c >= '0' && c <= '9') digits += c;
  }
  digits.erase(0, digits.find_first_not_of('0'));
  digits.erase(digits.find_last_not_of('0') + 1);
  return digits.size();
}

/// Every number reads back the same, and no text of fewer digits would.
template <class T, class Bits, class Parse>
void ExpectFewestDigits(int bits, Parse parse) {
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 20000; ++i) {
    // All magnitudes first, then those that are written plainly.
    const auto number = static_cast<Bits>(random());
    const T value = i % 2 == 0 ? std::bit_cast<T>(number)
                               : std::ldexp(static_cast<T>(number >> 11U),
                                            static_cast<int>(random() % 64) - bits);
    if (!std::isfinite(value)) continue;
    const std::string text = Text(value);
    ASSERT_EQ(std::bit_cast<Bits>(parse(text.c_str())), std::bit_cast<Bits>(value)) << text;
    if constexpr (std::is_same_v<T, float>) {  // as the readers have it, by way of a double
      ASSERT_EQ(NarrowToFloat(std::strtod(text.c_str(), nullptr)), value) << text;
      ASSERT_EQ(Text(AsWritten(value)), text);
    }
    char shortest[40] = "0";
    for (int digits = 1; parse(shortest) != value; ++digits) {
      std::snprintf(shortest, sizeof shortest, "%.*e", digits - 1, static_cast<double>(value));
    }
    ASSERT_EQ(SignificantDigits(text), SignificantDigits(shortest)) << text;
  }
}

TEST(Numbers, EveryRealReadsBackTheSameFromTheFewestDigits) {
  ExpectFewestDigits<double, std::uint64_t>(
      64, [](const char* text) { return std::strtod(text, nullptr); });
  ExpectFewestDigits<float, std::uint32_t>(
      35, [](const char* text) { return std::strtof(text, nullptr); });
  for (const auto& [value, expected] :
       {std::pair{9.9999990e-5F, "9.999999e-05"}, std::pair{0.3333333433F, "0.33333334"},
        std::pair{134217728.0F, "134217730.0"}, std::pair{9.999999e15F, "9999999000000000.0"},
        std::pair{std::numeric_limits<float>::infinity(), "null"}}) {
    EXPECT_EQ(Text(value), expected);
  }
}

TEST(Numbers, LeadingNumbersAreReadAsByC) {
  static constexpr char kAlphabet[] = "0011259..--++eEeExXpPafAF \t\v\ninq";
  std::mt19937 random(7);
  for (int i = 0; i < 300000; ++i) {
    std::string text(random() % 12, ' ');
    for (char& c : text) c = kAlphabet[random() % (sizeof kAlphabet - 1)];
    // Far exponents and prefixes come up too rarely by chance.
    if (i % 8 == 0) text.insert(0, "0x");
    if (i % 16 == 1) text += "e-32" + std::to_string(random() % 10);
    if (i % 16 == 2) text += "e30" + std::to_string(random() % 10);
    if (i % 16 == 3) text += "p-107" + std::to_string(random() % 10);

    char* end = nullptr;
    const double real = std::strtod(text.c_str(), &end);
    const auto read = LeadingDouble(text);
    if (end == text.c_str() || !std::isfinite(real)) {
      ASSERT_FALSE(read.has_value()) << text;
    } else {
      ASSERT_TRUE(read.has_value()) << text;
      ASSERT_EQ(std::bit_cast<std::uint64_t>(*read), std::bit_cast<std::uint64_t>(real)) << text;
    }

    const std::int64_t whole = std::strtoll(text.c_str(), &end, 10);
    const auto readWhole = LeadingInt64(text);
    ASSERT_EQ(readWhole.has_value(), end != text.c_str()) << text;
    ASSERT_EQ(readWhole.value_or(0), whole) << text;
  }
}

TEST(Numbers, NarrowingSaturates) {
  EXPECT_EQ(SaturateToInt64(9223372036854775808.0), kMax64);
  EXPECT_EQ(SaturateToInt64(9223372036854774784.0), 9223372036854774784);
  EXPECT_EQ(SaturateToInt64(-9223372036854775808.0), kMin64);
  EXPECT_EQ(SaturateToInt64(-1e300), kMin64);
  EXPECT_EQ(SaturateToInt64(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(SaturateToInt64(-2.9), -2);
  EXPECT_EQ(SaturateToInt32(kMin64), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(SaturateToInt32(2147483648), 2147483647);
  EXPECT_EQ(NarrowToFloat(1e39), std::numeric_limits<float>::infinity());
  EXPECT_EQ(NarrowToFloat(-1e39), -std::numeric_limits<float>::infinity());
  // Rounds down to the largest float up to half a step beyond it.
  EXPECT_EQ(NarrowToFloat(0x1.fffffefp127), std::numeric_limits<float>::max());
  EXPECT_EQ(NarrowToFloat(0x1.ffffffp127), std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(NarrowToFloat(std::numeric_limits<double>::quiet_NaN())));
  EXPECT_EQ(WrappingDifference(kMin64, 1), kMax64);
}

}  // namespace
}  // namespace keelstone
