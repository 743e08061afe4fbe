#include "model/history/own_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>

#include "keelstone/numbers.h"

namespace keelstone {
namespace {

// What the reader makes of a text that is to be one value and nothing else.
template <class T>
std::optional<T> ReadWhole(const std::string& text) {
  OwnTextReader reader(text);
  T value = T();
  if (!reader.Read(value) || !reader.AtEnd()) return std::nullopt;
  return value;
}

template <class T>
std::string Written(T value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

template <class T>
T RandomReal(std::mt19937_64& random) {
  // Values as devices give them, and any pattern of bits.
  if (random() % 2 == 0) {
    const auto digits = static_cast<double>(random() % 1'000'000'000'000U);
    return static_cast<T>(digits / std::pow(10.0, static_cast<double>(random() % 12)));
  }
  using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
  const auto bits = static_cast<Bits>(random());
  T value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

template <class T>
class OwnTextOfReals : public ::testing::Test {};
using Reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(OwnTextOfReals, Reals);

TYPED_TEST(OwnTextOfReals, TakesWhatTheLibraryWrites) {
  std::mt19937_64 random(1);
  int taken = 0;
  for (int i = 0; i < 200'000; ++i) {
    const auto value = RandomReal<TypeParam>(random);
    if (!std::isfinite(value)) continue;
    const std::optional<TypeParam> read = ReadWhole<TypeParam>(Written(value));
    ASSERT_TRUE(read.has_value()) << Written(value);
    ASSERT_EQ(std::memcmp(&*read, &value, sizeof value), 0) << Written(value);
    ++taken;
  }
  EXPECT_GT(taken, 150'000);
}

TYPED_TEST(OwnTextOfReals, RefusesWhatIsNoReal) {
  for (const char* text : {"",        "-",    ".",    "1",     "-1",
                           "1.",      ".5",   "01.5", "1.50",  "0.00",
                           "+1.5",    "1.5 ", "1e5",  "1.5e",  "1.5E+20",
                           "0.00001", "nan",  "inf",  "1e999", "12345678901234567890123.5",
                           "0x1.8p1", "1.5f", "- 1.5"}) {
    EXPECT_FALSE(ReadWhole<TypeParam>(text).has_value()) << text;
  }
}

}  // namespace
}  // namespace keelstone
