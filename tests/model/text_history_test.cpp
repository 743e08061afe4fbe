#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "model/kshistorydata.h"
#include "tests/support/odd_texts.h"
#include "tests/support/text_points.h"
#include "tests/support/text_second_reading.h"

namespace keelstone::testing {
namespace {

using plain::Quote;
using plain::SeenText;
using ::testing::ElementsAreArray;
using Times = std::vector<std::pair<std::int64_t, std::string>>;

template <class History>
Times Content(const History& history) {
  Times content;
  for (const auto& point : history.points()) content.emplace_back(point.time, point.value);
  return content;
}

std::string StringList(const std::string& list) {
  return R"({"dataType":4,"dataList":[)" + list + "]}";
}

/// A string in some writing that JSON allows.
std::string SomeWriting(const std::string& bytes, std::mt19937& random) {
  std::string text = "\"";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    char escape[8];
    std::snprintf(escape, sizeof escape, random() % 2 == 0 ? "\\u%04x" : "\\u%04X", byte);
    if (byte < 0x80 && random() % 4 == 0) {
      text += escape;
    } else if (c == '/' && random() % 2 == 0) {
      text += "\\/";
    } else {
      const std::string own = Quote(std::string(1, c));
      text += own.substr(1, own.size() - 2);
    }
  }
  return text + "\"";
}

TEST(StringHistory, ReadsEveryWritingOfAText) {
  struct Case {
    std::string text;
    Times points;
  };
  const std::vector<Case> cases = {
      {StringList(R"({"liveTime":5,"dataValue":"up"})"), {{5, "up"}}},
      {"/* a */ {\"dataList\":[{\"dataValue\":\"up\", \"liveTime\":5}], // b\n\"dataType\":4}",
       {{5, "up"}}},
      {StringList(R"({"liveTime":5,"dataValue":"\u0075\u0070\/\ud83d\udd25\u0000"})"),
       {{5, std::string("up/\xf0\x9f\x94\xa5\0", 8)}}},
      {StringList(R"({"liveTime":-1,"dataValue":""},{"liveTime":-1,"dataValue":""})"),
       {{-1, ""}, {-1, ""}}},
      {StringList(R"({"liveTime":5,"dataValue":12},{"liveTime":6,"dataValue":true},{})"),
       {{5, "12"}, {6, "true"}, {0, ""}}},
      {StringList(R"({"liveTime":9223372036854775807,"dataValue":"x"})"),
       {{std::numeric_limits<std::int64_t>::max(), "x"}}},
      {StringList(""), {}},
  };
  for (const Case& c : cases) {
    StrHisotryData history;
    EXPECT_TRUE(history.FromString(c.text)) << c.text;
    EXPECT_THAT(Content(history), ElementsAreArray(c.points)) << c.text;
  }
}

TEST(StringHistory, RefusesWhatIsNoHistoryAndKeepsThePointsBeforeAFault) {
  const std::string sound = R"({"liveTime":5,"dataValue":"up"})";
  struct Case {
    std::string text;
    Times points;
  };
  const std::vector<Case> cases = {
      {"", {}},
      {"[]", {}},
      {"null", {}},
      {StringList(sound).substr(1), {}},
      {StringList(sound) + "}", {}},
      {StringList(sound) + std::string(1, '\0'), {}},
      {StringList(sound + ","), {}},
      {R"({"dataType":5,"dataList":[)" + sound + "]}", {}},
      {R"({"dataType":1,"dataList":[)" + sound + "]}", {}},
      {R"({"dataType":"4","dataList":[)" + sound + "]}", {}},
      {R"({"dataList":[)" + sound + "]}", {}},
      {R"({"dataType":4,"dataList":"none"})", {}},
      {R"({"dataType":4})", {}},
      {StringList(R"({"liveTime":5,"dataValue":"line)"
                  "\n"
                  R"(feed"})"),
       {}},
      {StringList(sound + R"(,{"liveTime":6,"dataValue":["up"]},)" + sound), {{5, "up"}}},
      {StringList(sound + R"(,{"liveTime":"6","dataValue":"up"})"), {{5, "up"}}},
      {StringList(sound + R"(,"up")"), {{5, "up"}}},
  };
  for (const Case& c : cases) {
    StrHisotryData history;
    EXPECT_FALSE(history.FromString(c.text)) << c.text;
    EXPECT_THAT(Content(history), ElementsAreArray(c.points)) << c.text;
  }
}

// Whichever texts it was read from, in its own layout or not, and whatever was added and
// dropped since: the text is the one that its points give.
TEST(StringHistory, WritesTheSameHoweverItCameToItsPoints) {
  std::mt19937 random(20240301);
  for (int round = 0; round < 6000; ++round) {
    SCOPED_TRACE(::testing::Message() << "round " << round);
    StrHisotryData history;
    std::vector<SeenText> seen;
    for (auto texts = random() % 3; texts > 0; --texts) {
      const bool isOwn = random() % 2 == 0;
      std::string list;
      for (auto points = random() % 6; points > 0; --points) {
        seen.push_back({static_cast<std::int64_t>(random()) - 99, SomeOddText(random), {}, {}, {}});
        list += std::string(list.empty() ? "" : ",") + (isOwn ? "" : " ") +
                "{\"liveTime\":" + std::to_string(seen.back().time) + ",\"dataValue\":" +
                (isOwn ? Quote(seen.back().value) : SomeWriting(seen.back().value, random)) + "}";
      }
      ASSERT_TRUE(history.FromString(StringList(list))) << list;
      ASSERT_EQ(history.ToString(), plain::TextHistory(seen)) << list;
    }
    for (auto added = random() % 9; added > 0; --added) {
      const SeenText next{static_cast<std::int64_t>(random()), SomeOddText(random), {}, {}, {}};
      const int most = static_cast<int>(random() % 12) - 1;
      while (!seen.empty() && static_cast<int>(seen.size()) >= most) seen.erase(seen.begin());
      seen.push_back(next);
      history.AddData(StringPoint(next.time, next.value), most);
      ASSERT_EQ(history.ToString(), plain::TextHistory(seen));
    }
    ASSERT_EQ(history.GetLastTime(), seen.empty() ? -1 : seen.back().time);
    ASSERT_EQ(history.GetDataCount(), static_cast<std::int32_t>(seen.size()));
  }
}

// ---- Tables

void ExpectTables(const TableHistoryData& history, const std::vector<SeenText>& seen) {
  ASSERT_EQ(history.points().size(), seen.size());
  for (std::size_t i = 0; i < seen.size(); ++i) {
    const KSTableDataPoint& point = history.points()[i];
    ASSERT_EQ(point.time, seen[i].time);
    ASSERT_EQ(point.value, seen[i].value);
    ASSERT_EQ(point.content->hashColumns, seen[i].columns);
    ASSERT_EQ(point.content->hashSort, seen[i].sorted);
    ASSERT_EQ(point.content->rawValueSize, static_cast<std::int64_t>(seen[i].table.size()));
    ASSERT_EQ(point.content->GetTableText(), seen[i].table);
  }
}

SeenText SomeTable(std::mt19937& random, const std::vector<SeenText>& seen) {
  if (!seen.empty() && random() % 2 == 0) {
    SeenText again = seen[random() % seen.size()];
    again.time += static_cast<int>(random() % 3);
    if (random() % 4 == 0) again.sorted = !again.sorted;
    if (random() % 4 == 0) again.table += " ";
    if (random() % 4 == 0) again.columns.insert(SomeOddText(random));
    if (random() % 4 == 0) again.value += "0";
    return again;
  }
  SeenText table{static_cast<std::int64_t>(random()), {}, {}, {}, random() % 2 == 0};
  table.value = random() % 2 == 0 ? "0cc175b9c0f1b6a831c399e269772661" : SomeOddText(random);
  for (auto columns = random() % 4; columns > 0; --columns) {
    table.columns.insert(random() % 2 == 0 ? "c" + std::to_string(random() % 9)
                                           : SomeOddText(random));
  }
  for (auto bytes = random() % 60; bytes > 0; --bytes) {
    table.table += static_cast<char>(random() % 256);
  }
  return table;
}

TEST(TableHistory, WritesTheSameHoweverItCameToItsPoints) {
  std::mt19937 random(20240302);
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(::testing::Message() << "round " << round);
    TableHistoryData history;
    std::vector<SeenText> seen;
    for (auto texts = random() % 3; texts > 0; --texts) {
      std::vector<SeenText> list;
      for (auto points = random() % 6; points > 0; --points) {
        list.push_back(SomeTable(random, list));
      }
      if (list.empty()) continue;
      seen.insert(seen.end(), list.begin(), list.end());
      std::string text = TableHistory(list);
      if (random() % 2 == 0) text.insert(text.size() - 1, " ");
      ASSERT_TRUE(history.FromString(text)) << text;
      ExpectTables(history, seen);
      ASSERT_EQ(history.ToString(), TableHistory(seen)) << text;
    }
    for (auto added = random() % 6; added > 0; --added) {
      const SeenText next = SomeTable(random, seen);
      const int most = static_cast<int>(random() % 9) - 1;
      while (!seen.empty() && static_cast<int>(seen.size()) >= most) seen.erase(seen.begin());
      seen.push_back(next);
      history.AddData(TablePoint(next), most);
      ExpectTables(history, seen);
      ASSERT_EQ(history.ToString(), TableHistory(seen));
    }
    if (::testing::Test::HasFatalFailure()) return;
  }
}

TEST(TableHistory, ReadsOtherWritingsIntoItsOwn) {
  const SeenText seen{7, "d", "{}", {"a", "b"}, true};
  const std::string own = TableElement(seen);
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string text = own;
    return text.replace(text.find(from), from.size(), to);
  };
  for (const std::string& element :
       {replaced("[\"a\",\"b\"]", "[\"b\",\"a\"]"),
        replaced("[\"a\",\"b\"]", "[\"a\",\"b\",\"a\"]"), replaced("\"d\"", "\"\\u0064\""),
        replaced("true", " true"), replaced("true", "1")}) {
    TableHistoryData history;
    EXPECT_TRUE(history.FromString(R"({"dataType":5,"dataList":[)" + element + "]}")) << element;
    ExpectTables(history, {seen});
    EXPECT_EQ(history.ToString(), TableHistory({seen})) << element;
  }
}

TEST(TableHistory, RefusesWrongKindsAndOtherHistories) {
  const SeenText seen{7, "d", "{}", {"a"}, false};
  const std::string own = TableElement(seen);
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string text = own;
    return own + "," + text.replace(text.find(from), from.size(), to);
  };
  for (const std::string& list :
       {replaced("[\"a\"]", "[[]]"), replaced("\"hashColumns\"", "\"columns\""),
        replaced("[\"a\"]", "\"a\""), replaced("false", "\"no\""),
        replaced("\"rawValueSize\":2", "\"rawValueSize\":\"2\""),
        replaced("\"tableValue\":\"", "\"tableValue\":[],\"other\":\""),
        replaced("\"tableValue\":\"", "\"tableValue\":\"\\\""), own + ",7"}) {
    TableHistoryData history;
    EXPECT_FALSE(history.FromString(R"({"dataType":5,"dataList":[)" + list + "]}")) << list;
    ExpectTables(history, {seen});
  }
  TableHistoryData tables;
  EXPECT_FALSE(tables.FromString(StringList(R"({"liveTime":5,"dataValue":"up"})")));
  StrHisotryData strings;
  EXPECT_FALSE(strings.FromString(TableHistory({seen})));
  EXPECT_EQ(tables.ToString() + strings.ToString(), "");
}

// ---- Both

TEST(TextHistories, TakeNoPointsOfOtherTypes) {
  StrHisotryData strings;
  TableHistoryData tables;
  EXPECT_EQ(strings.GetLastTime(), -1);
  EXPECT_EQ(tables.GetLastTime(), -1);
  strings.AddData(TablePoint({1, "d", "{}", {}, false}), 5);
  strings.AddData(std::make_shared<KSDataPoint<double>>(1, 2.0), 5);
  strings.AddData(nullptr, 5);
  tables.AddData(StringPoint(1, "d"), 5);
  // A table's point is not one of strings, though its digest is a string.
  EXPECT_EQ(tables.GetDataCount(), 0);

  std::string text = "as it was";
  strings.GetDataValue(std::make_shared<KSDataPoint<double>>(1, 2.0), text);
  EXPECT_EQ(text, "as it was");
  strings.GetDataValue(StringPoint(1, "\"v"), text);
  EXPECT_EQ(text, "\"v");
  tables.GetDataValue(TablePoint({1, "digest", "{}", {}, false}), text);
  EXPECT_EQ(text, "digest");
}

}  // namespace
}  // namespace keelstone::testing
