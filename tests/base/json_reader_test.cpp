#include "keelstone/json_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace keelstone {
namespace {

JsonValue Parsed(std::string_view text, const JsonReadOptions& options = {}) {
  JsonValue value;
  JsonParseError error;
  EXPECT_TRUE(JsonReader::Parse(text, value, &error, options))
      << text << ": " << error.message << " at " << error.offset;
  return value;
}

std::string Key(int number) { return std::string("key").append(std::to_string(number)); }

TEST(JsonReader, NumbersBecomeTheNarrowestKindThatHoldsThem) {
  const struct {
    const char* text;
    JsonType type;
    const char* written;
  } cases[] = {
      {"-0", JsonType::Int, "0"},
      {"-0.0", JsonType::Real, "-0.0"},
      {"9223372036854775807", JsonType::Int, "9223372036854775807"},
      {"9223372036854775808", JsonType::UInt, "9223372036854775808"},
      {"18446744073709551615", JsonType::UInt, "18446744073709551615"},
      {"18446744073709551616", JsonType::Real, "1.8446744073709552e+19"},
      {"-9223372036854775808", JsonType::Int, "-9223372036854775808"},
      {"-9223372036854775809", JsonType::Real, "-9.223372036854776e+18"},
      {"1e2", JsonType::Real, "100.0"},
      {"1.0", JsonType::Real, "1.0"},
      {"1e-400", JsonType::Real, "0.0"},
      {"3e-324", JsonType::Real, "5e-324"},
      {"1e-99999999999", JsonType::Real, "0.0"},
      {"0e99999999999", JsonType::Real, "0.0"},
      {"1.7976931348623157e308", JsonType::Real, "1.7976931348623157e+308"},
      {"9007199254740993.00000000000000000000000000000000001", JsonType::Real,
       "9007199254740994.0"},
      {"8.41921029385013234e-5", JsonType::Real, "8.419210293850132e-05"},
  };
  for (const auto& c : cases) {
    const JsonValue value = Parsed(c.text);
    EXPECT_EQ(value.type(), c.type) << c.text;
    EXPECT_EQ(value.toString(), c.written) << c.text;
    // In the middle of a longer text the parser takes other ways.
    const std::string longer = std::string("[") + c.text + ",\"" + std::string(40, 'x') + "\"]";
    EXPECT_EQ(Parsed(longer)[0].toString(), c.written) << c.text;
  }
}

/// A text of few names and strings, some of them repeated, and what is written of it.
struct TextAndMeaning {
  std::string text;
  std::string meaning;
};

TextAndMeaning MakeText(std::mt19937& random, int depth) {
  static const std::string kScalars[] = {"1",    "2.5",   "null",
                                         "\"\"", "\"x\"", "\"one string of many\""};
  const auto choice = random() % (depth > 0 ? 12 : 6);
  if (choice < std::size(kScalars)) return {kScalars[choice], kScalars[choice]};
  TextAndMeaning made;
  std::vector<std::pair<std::string, std::string>> members;
  const bool isArray = choice < 8;
  for (auto count = random() % 6; count > 0; --count) {
    // Mostly in one order, as objects of one kind have their members.
    std::string name = Key(static_cast<int>(random() % 4 == 0 ? random() % 6 : count));
    name.insert(0, "\"").append("\":");
    const TextAndMeaning value = MakeText(random, depth - 1);
    made.text.append(made.text.empty() ? "" : ", ").append(isArray ? "" : name).append(value.text);
    const auto same = std::find_if(members.begin(), members.end(), [&](const auto& member) {
      return !isArray && member.first == name;
    });
    if (same != members.end()) {
      same->second = value.meaning;
    } else {
      members.emplace_back(name, value.meaning);
    }
  }
  for (const auto& [name, value] : members) {
    made.meaning.append(made.meaning.empty() ? "" : ",").append(isArray ? "" : name).append(value);
  }
  made.text.insert(0, isArray ? "[" : "{").append(isArray ? "]" : "}");
  made.meaning.insert(0, isArray ? "[" : "{").append(isArray ? "]" : "}");
  return made;
}

// The reader makes use of what it has read before, in a text and in earlier ones.
TEST(JsonReader, WhatWasReadBeforeDoesNotShow) {
  std::mt19937 random(11);
  std::vector<std::pair<JsonValue, std::string>> kept(20);
  for (auto& [value, meaning] : kept) meaning = "null";
  for (int i = 0; i < 20000; ++i) {
    const TextAndMeaning made = MakeText(random, 5);
    JsonValue value = Parsed(made.text);
    ASSERT_EQ(value.toString(), made.meaning) << made.text;
    auto& [earlier, meaning] = kept[static_cast<std::size_t>(i) % kept.size()];
    ASSERT_EQ(earlier.toString(), meaning);
    earlier = value;
    meaning = made.meaning;
    if (!value.isObject()) continue;
    value["key1"] = i;
    value[Key(i)] = "added";
    value.removeMember("key2");
    ASSERT_EQ(Parsed(value.toString()), value);
  }
}

TEST(JsonReader, DepthIsBounded) {
  const auto nested = [](std::size_t levels, const char* open, const char* close) {
    std::string text;
    for (std::size_t i = 0; i < levels; ++i) text += open;
    text += "1";
    for (std::size_t i = 0; i < levels; ++i) text += close;
    return text;
  };
  for (const auto& [open, close] : {std::pair("[", "]"), std::pair("{\"a\":", "}")}) {
    const std::string deepest = nested(JsonReader::kMaxDepth, open, close);
    EXPECT_EQ(Parsed(deepest).toString(), deepest);
    JsonValue value;
    EXPECT_FALSE(JsonReader::Parse(nested(JsonReader::kMaxDepth + 1, open, close), value));
    EXPECT_FALSE(JsonReader::Parse(nested(1000000, open, ""), value));
  }
}

TEST(JsonReader, StringsOfAnyLengthAndEscapesComeWhole) {
  EXPECT_EQ(Parsed(R"("\"\\\/\b\f\n\r\t\u0041\u00e9\u20AC\ud83d\ude00")").asString(),
            "\"\\/\b\f\n\r\tA\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  // The parser hands long strings on in parts, cut where its buffer ends.
  for (std::size_t size = 4080; size < 4110; ++size) {
    const std::string head(size, 'x');
    const std::string tail(5000, 'y');
    const std::string text = "\"\\t" + head + "\\ud83d\\ude00" + tail + "\\n\"";
    const std::string expected = "\t" + head + "\xF0\x9F\x98\x80" + tail + "\n";
    ASSERT_EQ(Parsed(text).asString(), expected);
    ASSERT_EQ(Parsed("{" + text + ":[]}").begin().name(), expected);
  }
  JsonValue value;
  for (const char* lone : {R"("\ud800")", R"(["\udc00 and some more text"])", R"("\ud800\u0041")",
                           R"({"\ud83dx":1})"}) {
    EXPECT_FALSE(JsonReader::Parse(lone, value)) << lone;
  }
}

TEST(JsonReader, BytesThatAreNotUtf8PassUnlessForbidden) {
  for (const char* bytes : {"\xFF", "\xC0\xAF", "\xED\xA0\x80", "\xE2\x82", "\xF5\x80\x80\x80"}) {
    const std::string text = std::string("[\"long enough for a block \xC3\xA9 ") + bytes + "\"]";
    EXPECT_EQ(Parsed(text).toString(), text);
    JsonValue value;
    JsonParseError error;
    EXPECT_FALSE(JsonReader::Parse(text, value, &error, {.requireUtf8 = true}));
    EXPECT_EQ(error.offset, 29U) << error.message;
  }
  EXPECT_EQ(Parsed("\"\xC3\xA9\xF0\x9F\x98\x80\"", {.requireUtf8 = true}).asString().size(), 6U);
}

TEST(JsonReader, MayReadTheTextOfTheValueItFills) {
  JsonValue value("[\"a string that is too long to be held inline\"]");
  ASSERT_TRUE(JsonReader::Parse(value.stringRef(), value));
  EXPECT_TRUE(value.isArray());
}

}  // namespace
}  // namespace keelstone
