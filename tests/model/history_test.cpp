#include "keelstone/history_data.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/text/base64.h"
#include "keelstone/explanation.h"
#include "tests/support/odd_texts.h"
#include "tests/support/points.h"

namespace keelstone::testing {
namespace {

std::string TextOf(int type, const std::string& list) {
  return "{\"dataType\":" + std::to_string(type) + ",\"dataList\":[" + list + "]}";
}

/// The points of a history's text as JSON: of each its time and its value.
JsonValue Points(const std::string& text) {
  JsonValue points(JsonType::Array);
  const JsonValue document = ValueOfText(text.empty() ? "{}" : text);
  for (const JsonValue& point : document["dataList"]) {
    JsonValue& one = points.append(JsonValue(JsonType::Array));
    one.append(point["liveTime"]);
    one.append(point["dataValue"]);
  }
  return points;
}

struct TextCase {
  EnumKSDataType type;
  std::string text;
  bool taken;
  const char* points;  // what is there afterwards
};

void Check(const std::vector<TextCase>& cases) {
  for (const TextCase& c : cases) {
    SCOPED_TRACE(c.text);
    const auto history = MakeHistory(c.type);
    EXPECT_EQ(history->FromString(c.text), c.taken);
    const JsonValue points = Points(history->ToString());
    EXPECT_EQ(points.toString(), c.points) << history->ToString();
    EXPECT_EQ(history->GetDataCount(), static_cast<std::int32_t>(points.size()));
    const int none = c.type == KSDataString || c.type == KSDataTable ? -1 : 0;
    EXPECT_EQ(history->GetLastTime(),
              points.empty() ? none : points[points.size() - 1][0].asInt64());
  }
}

constexpr const char* kTable =
    R"({"liveTime":7,"dataValue":"d","hashSort":false,"hashColumns":["a","b"],"rawValueSize":2,)"
    R"("tableValue":"KLUv/SACEQAAe30="})";

std::string Table(const std::string& from = "", const std::string& to = "") {
  std::string text = kTable;
  return text.replace(text.find(from), from.size(), to);
}

TEST(HistoryText, IsReadInEveryWritingOfJson) {
  Check({
      {KSDataInt64, TextOf(1, R"({"liveTime":5,"dataValue":-7},{"liveTime":6,"dataValue":0})"),
       true, "[[5,-7],[6,0]]"},
      {KSDataInt64, "/* a */{\"dataType\":1,// b\n\"dataList\":[{\"liveTime\":5,\"dataValue\":7}]}",
       true, "[[5,7]]"},
      {KSDataInt64, R"({"dataType":1,"x":{},"dataList":[{"dataValue":7,"unit":"s","liveTime":5}]})",
       true, "[[5,7]]"},
      {KSDataInt64,
       R"({"dataType":2,"dataType":1.0,"dataList":[{"liveTime":5,"dataValue":7,"dataValue":8}]})",
       true, "[[5,8]]"},
      {KSDataInt64,
       TextOf(1, R"({"liveTime":5.9,"dataValue":2.9},{"liveTime":6,"dataValue":-2.9})"), true,
       "[[5,2],[6,-2]]"},
      {KSDataInt64,
       TextOf(1, R"({"liveTime":5,"dataValue":9223372036854775807},)"
                 R"({"liveTime":6,"dataValue":-9223372036854775808})"),
       true, "[[5,9223372036854775807],[6,-9223372036854775808]]"},
      {KSDataInt64, TextOf(1, ""), true, "[]"},
      {KSDataInt64, R"({"dataType":1,"dataList":null})", true, "[]"},
      {KSDataDouble, TextOf(3, R"({"liveTime":1,"dataValue":1e39})"), true, "[[1,1e+39]]"},
      {KSDataString, TextOf(4, R"({"liveTime":5,"dataValue":"\u0075p\/\ud83d\udd25\u0000"})"), true,
       "[[5,\"up/\xf0\x9f\x94\xa5\\u0000\"]]"},
      {KSDataString,
       TextOf(4, R"({"liveTime":5,"dataValue":12},{"liveTime":6,"dataValue":true},{})"), true,
       R"([[5,"12"],[6,"true"],[0,""]])"},
      {KSDataTable, TextOf(5, Table("[\"a\",\"b\"]", "[\"b\",\"a\",\"b\"]")), true, R"([[7,"d"]])"},
      {KSDataTable, TextOf(5, Table("\"d\"", "\"\\u0064\"")), true, R"([[7,"d"]])"},
      {KSDataTable, TextOf(5, Table("false", "0")), true, R"([[7,"d"]])"},
  });
}

TEST(HistoryText, ThatIsRefusedKeepsThePointsBeforeItsFault) {
  const std::string whole = R"({"liveTime":5,"dataValue":7})";
  const std::string text = R"({"liveTime":5,"dataValue":"up"})";
  std::vector<TextCase> cases = {
      {KSDataInt64, R"({"dataType":1,"dataList":[)" + whole, false, "[]"},
      {KSDataInt64, TextOf(1, whole) + std::string(1, '\0'), false, "[]"},
      {KSDataInt64, "[]", false, "[]"},
      {KSDataInt64, TextOf(2, whole), false, "[]"},
      {KSDataInt64, R"({"dataList":[)" + whole + "]}", false, "[]"},
      {KSDataInt64, TextOf(1, whole + R"(,{"liveTime":6,"dataValue":"8"},)" + whole), false,
       "[[5,7]]"},
      {KSDataInt64, TextOf(1, whole + R"(,{"liveTime":6,"dataValue":9223372036854775808})"), false,
       "[[5,7]]"},
      // What single precision cannot hold would be no number.
      {KSDataFloat, TextOf(2, R"({"liveTime":1,"dataValue":0.5},{"liveTime":2,"dataValue":1e39})"),
       false, "[[1,0.5]]"},
      {KSDataDouble, TextOf(3, R"({"liveTime":1,"dataValue":1e400})"), false, "[]"},
      {KSDataString, TextOf(4, text + ","), false, "[]"},
      {KSDataString, R"({"dataType":"4","dataList":[)" + text + "]}", false, "[]"},
      {KSDataString, TextOf(4, "{\"liveTime\":5,\"dataValue\":\"line\nfeed\"}"), false, "[]"},
      {KSDataString, TextOf(4, text + R"(,{"liveTime":6,"dataValue":["up"]},)" + text), false,
       R"([[5,"up"]])"},
  };
  for (const std::string& fault :
       {Table("[\"a\",\"b\"]", "[[]]"), Table("\"hashColumns\"", "\"columns\""),
        Table("[\"a\",\"b\"]", "\"a\""), Table("false", "\"no\""), Table(":2,", ":\"2\","),
        Table("\"tableValue\":", "\"tableValue\":[],\"other\":"), Table("\"K", "\"\\\"K"),
        std::string("7")}) {
    cases.push_back({KSDataTable, TextOf(5, kTable + ("," + fault)), false, R"([[7,"d"]])"});
  }
  Check(cases);
}

class HistoryOfType : public ::testing::TestWithParam<EnumKSDataType> {
 protected:
  EnumKSDataType type() const { return GetParam(); }
  unsigned Below(unsigned n) { return static_cast<unsigned>(random_() % n); }

  JsonValue SomeNumber() {
    const auto raw = static_cast<std::int64_t>(random_());
    if (type() == KSDataInt64) return Below(4) == 0 ? raw : raw % 1000;
    const double reals[] = {static_cast<double>(raw), static_cast<double>(raw) * 1e-37,
                            static_cast<double>(raw % 100000) / 100, static_cast<double>(raw % 3),
                            static_cast<double>(raw % 1000) * 0.1};
    const double real = reals[Below(5)];
    return type() == KSDataFloat ? static_cast<double>(static_cast<float>(real)) : real;
  }

  /// A point as its element of the text, which JsonValue writes in the library's own layout.
  JsonValue SomePoint(const JsonValue& before) {
    JsonValue point(JsonType::Object);
    if (type() == KSDataTable && !before.isNull() && Below(2) == 0) {
      point = before;  // a table that stays shares its content; one that nearly stays does not
      point["liveTime"] = before["liveTime"].asInt64() + Below(3);
      if (Below(4) == 0) point["hashSort"] = !before["hashSort"].asBool();
      if (Below(4) == 0) point["hashColumns"] = ValueOfText(Below(2) == 0 ? "[]" : R"(["a","k"])");
      if (Below(4) == 0) point["dataValue"] = before["dataValue"].asString() + "0";
      return point;
    }
    point["liveTime"] = static_cast<std::int64_t>(random_() % 5'000'000'000U) - 99;
    point["dataValue"] = type() < KSDataString ? SomeNumber() : JsonValue(SomeOddText(odd_));
    if (type() != KSDataTable) return point;
    point["hashSort"] = Below(2) == 0;
    point["hashColumns"] = JsonValue(JsonType::Array);
    for (unsigned column = 0; column < Below(4); ++column) {
      point["hashColumns"].append("c" + std::to_string(column));
    }
    std::string table(Below(60), ' ');
    for (char& c : table) c = static_cast<char>(Below(256));
    point["rawValueSize"] = static_cast<std::int64_t>(table.size());
    std::string encoded;
    EXPECT_TRUE(CompressString(table));
    AppendBase64(encoded, table);
    point["tableValue"] = encoded;
    return point;
  }

  std::shared_ptr<KSDataBase> Point(const JsonValue& of) const {
    const auto point = PointOf(type(), of["liveTime"].asInt64(), of["dataValue"]);
    if (type() != KSDataTable) return point;
    const auto content = std::make_shared<TableContent>();
    content->hashSort = of["hashSort"].asBool();
    for (const JsonValue& column : of["hashColumns"])
      content->hashColumns.insert(column.asString());
    content->rawValueSize = of["rawValueSize"].asInt64();
    content->SetTableValue(of["tableValue"].asBinary());
    std::dynamic_pointer_cast<KSTableDataPoint>(point)->content = content;
    return point;
  }

  std::string Text(const std::vector<JsonValue>& points) const {
    JsonValue document(JsonType::Object);
    document["dataType"] = static_cast<int>(type());
    document["dataList"] = JsonValue(JsonType::Array);
    for (const JsonValue& point : points) document["dataList"].append(point);
    return points.empty() ? "" : document.toString();
  }

  /// The text in another writing: blanks, escapes, other digits for the same numbers.
  std::string Rewritten(std::string text) {
    for (std::size_t at = 0; (at = text.find("\"dataValue\":", at)) != std::string::npos;) {
      at += 12;
      if (Below(3) == 0) text.insert(at, " ");
      if (Below(3) != 0 || type() >= KSDataString || type() == KSDataInt64) continue;
      const std::size_t end = text.find('}', at);
      char digits[64];
      std::snprintf(digits, sizeof digits, Below(2) == 0 ? "%.17g" : "%.20E",
                    std::stod(text.substr(at, end - at)));
      text.replace(at, end - at, digits);
    }
    for (std::size_t at = 0; (at = text.find("\"data", at)) != std::string::npos; at += 5) {
      if (Below(8) == 0) text.replace(at + 1, 1, "\\u0064");
    }
    return text;
  }

  void Expect(const HistoryDataBase& history, const std::vector<JsonValue>& points) const {
    const std::string expected = Text(points);
    if (type() == KSDataFloat) {  // written with digits of its own
      ASSERT_TRUE(SameValues(type(), Points(history.ToString()), Points(expected))) << expected;
    } else {
      ASSERT_EQ(history.ToString(), expected);
    }
    ASSERT_EQ(history.GetDataCount(), static_cast<std::int32_t>(points.size()));
  }

  std::mt19937_64 random_{20240229};
  std::mt19937 odd_{20240301};
};

// Whichever texts it was read from, in its own layout or not, and whatever was added and
// dropped since: the text is the one that its points give.
TEST_P(HistoryOfType, WritesTheSameHoweverItCameToItsPoints) {
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    const auto history = MakeHistory(type());
    std::vector<JsonValue> all;
    for (unsigned texts = Below(3); texts > 0; --texts) {
      std::vector<JsonValue> points;
      for (unsigned left = Below(6); left > 0; --left) {
        points.push_back(SomePoint(points.empty() ? JsonValue() : points.back()));
      }
      if (points.empty()) continue;
      const std::string text = Text(points);
      ASSERT_TRUE(history->FromString(Below(2) == 0 ? text : Rewritten(text))) << text;
      all.insert(all.end(), points.begin(), points.end());
      Expect(*history, all);
    }
    for (unsigned added = Below(8); added > 0; --added) {
      const JsonValue next = SomePoint(all.empty() ? JsonValue() : all.back());
      const int most = static_cast<int>(Below(14)) - 1;
      while (!all.empty() && static_cast<int>(all.size()) >= most) all.erase(all.begin());
      all.push_back(next);
      history->AddData(Point(next), most);
      Expect(*history, all);
    }
    if (HasFatalFailure()) return;
  }
}

TEST_P(HistoryOfType, TakesNoPointsOfAnotherType) {
  const auto history = MakeHistory(type());
  for (const EnumKSDataType other :
       {KSDataInt64, KSDataFloat, KSDataDouble, KSDataString, KSDataTable}) {
    // A table's point is one of strings too: its digest is the value.
    if (other == type() || (type() == KSDataString && other == KSDataTable)) continue;
    std::string text = "as it was";
    history->AddData(PointOf(other, 1, JsonValue(2)), 3);
    EXPECT_EQ(history->GetDataCount(), 0) << other;
    history->GetDataValue(PointOf(other, 1, JsonValue(2)), text);
    EXPECT_EQ(text, "as it was") << other;
  }
  std::string text = "as it was";
  history->AddData(nullptr, 3);
  history->GetDataValue(nullptr, text);
  EXPECT_EQ(text, "as it was");
  history->GetDataValue(PointOf(type(), 1, JsonValue(-12)), text);
  const bool isReal = type() == KSDataFloat || type() == KSDataDouble;
  EXPECT_EQ(text, isReal ? "-12.0" : "-12");
}

INSTANTIATE_TEST_SUITE_P(Each, HistoryOfType,
                         ::testing::Values(KSDataInt64, KSDataFloat, KSDataDouble, KSDataString,
                                           KSDataTable),
                         [](const auto& info) { return std::string(DataTypeName(info.param)); });

}  // namespace
}  // namespace keelstone::testing
