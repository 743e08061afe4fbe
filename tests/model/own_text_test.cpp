#include "model/history/own_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>

#include "keelstone/json_reader.h"
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

// Reads `text`, whatever wrote it: only the library's own writing may be taken, and then
// as the very value.
template <class T>
void ExpectTakenOnlyAsWritten(const std::string& text) {
  const std::optional<T> value = ReadWhole<T>(text);
  if (value) {
    EXPECT_EQ(Written(*value), text);
  }
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

// The texts of numbers that others write (%.7g to %.17g, %e), and neighbours in the last
// digit, are near enough to the own ones to be mistaken for them.
TYPED_TEST(OwnTextOfReals, RefusesOtherWritings) {
  std::mt19937_64 random(2);
  for (int i = 0; i < 100'000; ++i) {
    const auto value = RandomReal<TypeParam>(random);
    if (!std::isfinite(value)) continue;
    char text[400];
    const char* const formats[] = {"%.7g", "%.8g", "%.9g", "%.16g", "%.17g", "%.5f", "%.12e"};
    std::snprintf(text, sizeof text, formats[random() % 7], static_cast<double>(value));
    ExpectTakenOnlyAsWritten<TypeParam>(text);
    std::string neighbour = Written(value);
    neighbour.back() = static_cast<char>('0' + random() % 10);
    ExpectTakenOnlyAsWritten<TypeParam>(neighbour);
  }
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

TEST(OwnText, ReadsIntegersAsTheJsonReader) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 100'000; ++i) {
    std::string text(random() % 21, '0');
    for (char& c : text) c = static_cast<char>('0' + random() % 10);
    if (random() % 8 == 0 && !text.empty()) text[random() % text.size()] = "/:-.e"[random() % 5];
    if (random() % 2 == 0) text.insert(text.begin(), '-');
    const std::optional<std::int64_t> read = ReadWhole<std::int64_t>(text);
    JsonValue value;
    const bool isInteger = JsonReader::Parse(text, value) && value.type() == JsonType::Int;
    if (read) {
      ASSERT_TRUE(isInteger) << text;
      ASSERT_EQ(value.asInt64(), *read) << text;
    } else if (isInteger) {
      // Only very long ones and "-0" are left to the reader.
      EXPECT_TRUE(text.size() > 18 || text == "-0") << text;
    }
  }
}

TEST(OwnText, KeepsItsPlaceWhenANumberIsRefused) {
  OwnTextReader reader("-12x");
  double real = 0.0;
  EXPECT_FALSE(reader.Read(real));
  std::int64_t whole = 0;
  EXPECT_TRUE(reader.Read(whole));
  EXPECT_EQ(whole, -12);
  EXPECT_FALSE(reader.AtEnd());
  EXPECT_TRUE(reader.Skip('x'));
}

}  // namespace
}  // namespace keelstone
