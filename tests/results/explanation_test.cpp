#include "keelstone/explanation.h"

#include <gtest/gtest.h>

#include <string>

#include "keelstone/json_reader.h"

namespace keelstone {
namespace {

JsonValue Parsed(const std::string& text) {
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
  return value;
}

std::string Columns(const std::string& columns, const std::string& rows) {
  return "{\"columns\":" + columns + ",\"rows\":" + rows + "}";
}

struct TableCase {
  const char* what;
  std::string before;
  std::string after;
  std::set<std::string> keys;
  const char* words;
  const char* document;
};

TEST(TableChanges, NameRowsByTheirKeyColumns) {
  const std::string routes = R"(["prefix","via","age"])";
  const TableCase cases[] = {
      {"one added, one gone, one otherwise",
       Columns(routes, R"([["a","x",1],["b","y",2]])"),
       Columns(routes, R"([["a","z",1],["c","y",2]])"),
       {"prefix"},
       "1 row added (c), 1 row removed (b), 1 row changed (a)",
       R"({"keys":["prefix"],"added":{"count":1,"rows":[{"prefix":"c","via":"y","age":2}]},)"
       R"("removed":{"count":1,"rows":[{"prefix":"b","via":"y","age":2}]},)"
       R"("changed":{"count":1,"rows":[{"key":{"prefix":"a"},"before":{"via":"x"},"after":{"via":"z"}}]}})"},
      {"all columns are keys",
       Columns(R"(["p","v"])", R"([["a","x"],["a","x"]])"),
       Columns(R"(["p","v"])", R"([["a","x"],["a","w"]])"),
       {},
       "1 row added (a, w), 1 row removed (a, x)",
       R"({"keys":["p","v"],"added":{"count":1,"rows":[{"p":"a","v":"w"}]},)"
       R"("removed":{"count":1,"rows":[{"p":"a","v":"x"}]},"changed":{"count":0,"rows":[]}})"},
      {"another order",
       Columns(R"(["p"])", R"([["a"],["b"]])"),
       Columns(R"(["p"])", R"([["b"],["a"]])"),
       {"p"},
       "the same rows in another order",
       R"({"keys":["p"],"added":{"count":0,"rows":[]},"removed":{"count":0,"rows":[]},)"
       R"("changed":{"count":0,"rows":[]},"reordered":true})"},
      {"a column came, a cell is short, 1 is not 1.0",
       Columns(R"(["p","n"])", R"([["a",1],["b"]])"),
       Columns(R"(["n","p","q"])", R"([[1.0,"a"],[null,"b",7]])"),
       {"p"},
       "2 rows changed (a; …)",
       R"({"keys":["p"],"added":{"count":0,"rows":[]},"removed":{"count":0,"rows":[]},"changed":{"count":2,)"
       R"("rows":[{"key":{"p":"a"},"before":{"n":1},"after":{"n":1.0}},{"key":{"p":"b"},"before":{"q":null},"after":{"q":7}}]}})"},
  };
  for (const TableCase& one : cases) {
    SCOPED_TRACE(one.what);
    const auto changes = KSTableChanges::Between(Parsed(one.before), Parsed(one.after), one.keys);
    ASSERT_TRUE(changes);
    EXPECT_EQ(changes->InWords(), one.words);
    EXPECT_EQ(changes->ToJsonValue().toString(), one.document);
  }
}

TEST(TableChanges, CountTheRestAndRefuseWhatIsNoTable) {
  std::string rows;
  for (int i = 0; i < 50; ++i) rows += (i > 0 ? ",[\"" : "[\"") + std::to_string(i) + "\"]";
  const JsonValue full = Parsed(Columns(R"(["p"])", "[" + rows + "]"));
  const JsonValue empty = Parsed(Columns(R"(["p"])", "[]"));
  const auto changes = KSTableChanges::Between(full, empty, {"p"});
  ASSERT_TRUE(changes);
  EXPECT_EQ(changes->removed.count, 50U);
  ASSERT_EQ(changes->removed.rows.size(), 20U);
  EXPECT_EQ(changes->removed.rows[19]["p"].asString(), "19");
  const auto same = KSTableChanges::Between(full, full, {"p"});
  ASSERT_TRUE(same);
  EXPECT_TRUE(same->isEmpty());
  EXPECT_EQ(same->InWords(), "");
  for (const char* const other :
       {"null", "[]", "{}", R"({"columns":[1],"rows":[]})", R"({"columns":["p"],"rows":[{}]})"}) {
    EXPECT_FALSE(KSTableChanges::Between(full, Parsed(other), {"p"})) << other;
  }
}

TEST(Explanation, IsOneSentenceThatTellsWhatIsKnownAndNoMore) {
  KSAlertExplanation alert;
  alert.variableName = "peers";
  alert.interfaceValue = "eth0";
  alert.time = 1700000000;
  alert.dataType = KSDataInt64;
  alert.expected = KSExpectation::Of(kIntLEQ, R"({"ruleParam":80})");
  alert.observed = 99;
  EXPECT_EQ(alert.Sentence(), "peers on eth0 is 99, expected at most 80 (learned)");
  EXPECT_TRUE(alert.ToJsonValue()["origin"]["time"].isNull());
  EXPECT_TRUE(alert.ToJsonValue()["history"]["firstTime"].isNull());
  alert.historyPoints = 1;
  alert.firstTime = 1699990000;
  alert.learnedTime = 1699990000;
  EXPECT_EQ(alert.Sentence(),
            "peers on eth0 is 99, expected at most 80 "
            "(learned 2023-11-14 19:26:40Z; 1 value since 2023-11-14 19:26:40Z)");
  alert.learnedTime = alert.time;
  EXPECT_NE(alert.Sentence().find("(learned just now; "), std::string::npos);
  alert.ruleGenerateType = kRulePrescribed;
  EXPECT_NE(alert.Sentence().find("(prescribed; "), std::string::npos);
  EXPECT_TRUE(alert.ToJsonValue()["origin"]["time"].isNull());
  alert.interfaceValue = "\xFF";
  EXPECT_NE(alert.ToJsonString().find("peers on \xEF\xBF\xBD is 99"), std::string::npos);
}

}  // namespace
}  // namespace keelstone
