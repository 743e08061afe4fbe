#include "keelstone/json_value.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/json_reader.h"

namespace keelstone {
namespace {

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t kMaxUnsigned = std::numeric_limits<std::uint64_t>::max();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

JsonValue Parsed(std::string_view text) {
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
  return value;
}

std::string Key(int number) { return std::string("k").append(std::to_string(number)); }

/// What a conversion gives, or nothing when it throws JsonError.
template <class Result>
std::optional<Result> Try(const JsonValue& value, Result (JsonValue::*convert)() const) {
  try {
    return (value.*convert)();
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

TEST(JsonValue, ConvertsOrRefusesByKindAndRange) {
  struct Case {
    JsonValue value;
    std::optional<int> asInt;
    std::optional<unsigned> asUInt;
    std::optional<std::int64_t> asInt64;
    std::optional<std::uint64_t> asUInt64;
    std::optional<double> asDouble;
    std::optional<bool> asBool;
    std::optional<std::string> asString;
  };
  constexpr auto kNo = std::nullopt;
  const Case cases[] = {
      {JsonValue(), 0, 0, 0, 0, 0.0, false, ""},
      {true, 1, 1, 1, 1, 1.0, true, "true"},
      {false, 0, 0, 0, 0, 0.0, false, "false"},
      {-5, -5, kNo, -5, kNo, -5.0, true, "-5"},
      {2147483648LL, kNo, 2147483648U, 2147483648, 2147483648, 2147483648.0, true, "2147483648"},
      {kMin64, kNo, kNo, kMin64, kNo, -0x1p63, true, "-9223372036854775808"},
      {kMaxUnsigned, kNo, kNo, kNo, kMaxUnsigned, 0x1p64, true, "18446744073709551615"},
      {JsonValue::Time(7), 7, 7, 7, 7, 7.0, true, "7"},
      {0.0, 0, 0, 0, 0, 0.0, false, "0.0"},
      {-2.75, -2, kNo, -2, kNo, -2.75, true, "-2.75"},
      {2147483647.5, kNo, 2147483647U, 2147483647, 2147483647, 2147483647.5, true, "2147483647.5"},
      {0x1p63, kNo, kNo, kNo, std::uint64_t{1} << 63U, 0x1p63, true, "9.223372036854776e+18"},
      {-0x1p63, kNo, kNo, kMin64, kNo, -0x1p63, true, "-9.223372036854776e+18"},
      {0x1p64, kNo, kNo, kNo, kNo, 0x1p64, true, "1.8446744073709552e+19"},
      {1e300, kNo, kNo, kNo, kNo, 1e300, true, "1e+300"},
      {"12", kNo, kNo, kNo, kNo, kNo, kNo, "12"},
      {JsonValue::Binary("12"), kNo, kNo, kNo, kNo, kNo, kNo, kNo},
      {JsonValue(JsonType::Array), kNo, kNo, kNo, kNo, kNo, kNo, kNo},
      {JsonValue(JsonType::Object), kNo, kNo, kNo, kNo, kNo, kNo, kNo},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.toString());
    EXPECT_EQ(Try(c.value, &JsonValue::asInt), c.asInt);
    EXPECT_EQ(Try(c.value, &JsonValue::asUInt), c.asUInt);
    EXPECT_EQ(Try(c.value, &JsonValue::asInt64), c.asInt64);
    EXPECT_EQ(Try(c.value, &JsonValue::asTime), c.asInt64);
    EXPECT_EQ(Try(c.value, &JsonValue::asUInt64), c.asUInt64);
    EXPECT_EQ(Try(c.value, &JsonValue::asDouble), c.asDouble);
    EXPECT_EQ(Try(c.value, &JsonValue::asBool), c.asBool);
    EXPECT_EQ(Try(c.value, &JsonValue::asString), c.asString);
  }
  EXPECT_FALSE(Try(JsonValue(kNan), &JsonValue::asInt64));
  EXPECT_FALSE(Try(JsonValue(kNan), &JsonValue::asUInt));
  EXPECT_FALSE(JsonValue(kNan).asBool());
  EXPECT_EQ(JsonValue(1e39).asFloat(), std::numeric_limits<float>::infinity());
}

// The index takes over from linear search at some size; removal moves what it points to.
TEST(JsonValue, ObjectsOfAnySizeFindTheirMembers) {
  for (const int size : {15, 16, 17, 18, 33, 500}) {
    JsonValue object;
    for (int i = 0; i < size; ++i) object[Key(i)] = i;
    for (int i = 0; i < size; i += 3) EXPECT_TRUE(object.removeMember(Key(i)));
    object["k0"] = 0;
    for (int i = 0; i < size; ++i) {
      const JsonValue* const member = object.find(Key(i));
      ASSERT_EQ(member != nullptr, i == 0 || i % 3 != 0) << i << " of " << size;
      if (member != nullptr) {
        EXPECT_EQ(member->asInt(), i);
      }
    }
    EXPECT_EQ(object.getMemberNames().back(), "k0");
  }
}

TEST(JsonValue, PartsAndWholesOfItselfMayBeAssigned) {
  JsonValue value = Parsed(R"({"child":{"x":[1]}})");
  value = value["child"];
  EXPECT_EQ(value.toString(), R"({"x":[1]})");
  value = std::move(value["x"]);
  EXPECT_EQ(value.toString(), "[1]");
  value.append(value[0]);
  value.append(value);
  EXPECT_EQ(value.toString(), "[1,1,[1,1]]");
  value[2][0] = value;  // would hold itself if the node were shared
  EXPECT_EQ(value.toString(), "[1,1,[[1,1,[1,1]],1]]");
  JsonValue& same = value;
  value = same;
  EXPECT_EQ(value.size(), 3U);

  JsonValue object;
  object["a"]["b"] = 1;
  JsonValue& b = object["a"]["b"];
  b = object;
  b["a"]["b"] = 2;
  EXPECT_EQ(object.toString(), R"({"a":{"b":{"a":{"b":2}}}})");
  const std::string& name = std::as_const(object).begin().name();
  EXPECT_TRUE(object.removeMember(name));
}

// The writer looks at many bytes at once, and not at all at names it knows to be plain.
TEST(JsonWriter, EscapesWhereverTheByteStands) {
  static constexpr char kBytes[] = {'"', '\\',   '\n',   '\x1f', ' ',
                                    '!', '\x7f', '\x80', '\xff', '\xa2'};
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    std::string bytes(random() % 40, 'a');
    for (auto edits = random() % 4; edits > 0 && !bytes.empty(); --edits) {
      bytes[random() % bytes.size()] = kBytes[random() % std::size(kBytes)];
    }
    std::string expected = "\"";
    for (const char c : bytes) {
      if (c == '"' || c == '\\') expected += '\\';
      expected += c == '\n' ? "\\n" : c == '\x1f' ? "\\u001f" : std::string(1, c);
    }
    expected += '"';
    JsonValue value;
    value["first"] = 1;
    value[bytes] = bytes;
    ASSERT_EQ(value.toString(), "{\"first\":1," + expected + ":" + expected + "}");
  }
}

TEST(JsonValue, NestingIsBoundedByMemoryOnly) {
  constexpr int kLevels = 100000;
  JsonValue deep;
  JsonValue same;
  for (int i = 0; i < kLevels; ++i) {
    JsonValue outer;
    if (i % 2 == 0) {
      outer.append(std::move(deep));
    } else {
      outer["k"] = std::move(deep);
    }
    deep = std::move(outer);
  }
  EXPECT_EQ(deep.toString().size(), kLevels / 2 * 2 + kLevels / 2 * 6 + 4);
  same = deep;
  EXPECT_EQ(deep, same);
  same["k"];  // one node of its own, the rest stays shared
  deep = JsonValue();
  EXPECT_EQ(same, same);
}

TEST(JsonValue, ThreadsMayShareNodes) {
  JsonValue shared = Parsed(R"({"list":[1,2,{"deep":"a string of some length, shared"}],"n":0})");
  const std::string before = shared.toString();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([copy = shared, t, &before]() mutable {
      for (int i = 0; i < 300; ++i) {
        JsonValue mine = copy;
        mine["list"][2]["deep"] = t;
        mine["list"].append(mine["list"][0]);
        ASSERT_EQ(mine["list"].size(), 4U);
        mine["n"] = i;
        mine[Key(t)] = Parsed(before);
        mine.removeMember("list");
        const JsonValue part = copy["list"][2];
        ASSERT_EQ(part["deep"].stringRef().size(), 31U);
        if (i % 10 == 9) copy["n"] = i;  // from here on partly its own
      }
    });
  }
  shared = JsonValue();
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(shared.isNull());
  EXPECT_EQ(Parsed(before).toString(), before);
}

}  // namespace
}  // namespace keelstone
