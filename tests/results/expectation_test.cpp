#include "keelstone/expectation.h"

#include <gtest/gtest.h>

#include <string>

namespace keelstone {
namespace {

struct Case {
  EnumRuleType type;
  const char* parameter;
  const char* document;
};

TEST(Expectation, TellsEveryKindOfRuleInWordsAndAsData) {
  const Case cases[] = {
      {kIntEqual, R"({"ruleParam":5})", R"({"words":"always 5","kind":"value","value":5})"},
      {kStrEqual, R"({"ruleParam":"up\u001b"})",
       R"({"words":"always \"up\u001b\"","kind":"value","value":"up\u001b","trim":" \n"})"},
      {kStrNoEqual, R"({"ruleParam":["a"]})",
       R"({"words":"none of \"a\"","kind":"notValue","values":["a"]})"},
      {kIntEnum, R"({"ruleParam":[1,2.5]})",
       R"({"words":"one of 1, 2.5","kind":"set","values":[1,2.5]})"},
      {kIntEnum, R"({"ruleParam":[]})", R"({"words":"one of nothing","kind":"set","values":[]})"},
      {kIntRange, R"({"maxValue":9,"minValue":-1})",
       R"({"words":"between -1 and 9","kind":"bounds","min":-1,"max":9})"},
      {kIntIncrease, R"({"ruleParam":12})",
       R"({"words":"rising above 12","kind":"increasing","value":12})"},
      {kIntConstant, R"({"ruleParam":12})",
       R"({"words":"constant at 12","kind":"constant","value":12})"},
      {kIntLEQ, R"({"ruleParam":80})", R"({"words":"at most 80","kind":"atMost","value":80})"},
      {kIntGEQ, R"({"ruleParam":80})", R"({"words":"at least 80","kind":"atLeast","value":80})"},
      {kStrRegex, R"({"ruleParam":"^up$"})",
       R"({"words":"matching \"^up$\"","kind":"pattern","pattern":"^up$","ignoreCase":true,"anywhere":true})"},
      {kTableMd5, R"({"hashCmp":"0c","hashSort":true,"hashColumns":[]})",
       R"({"words":"the table with digest \"0c\"","kind":"digest","digest":"0c"})"},
      // What is not learned yet, and what nobody can read.
      {kIntIncrease, "{}", R"({"words":"rising","kind":"none"})"},
      {kIntIncrease, "", R"({"words":"rising","kind":"none"})"},
      {kIntRange, "torn {", R"({"words":"intRange torn {","kind":"none"})"},
      {kIntRange, R"({"maxValue":9})", R"({"words":"intRange {\"maxValue\":9}","kind":"none"})"},
      {static_cast<EnumRuleType>(99), "x", R"({"words":"no rule x","kind":"none"})"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(KSExpectation::Of(one.type, one.parameter).ToJsonString(), one.document);
  }
}

TEST(Expectation, WordsAreShortAndKeepCharactersWhole) {
  const std::string parameter = R"({"ruleParam":")" + std::string(119, 'x') + "éé\"}";
  EXPECT_EQ(KSExpectation::Of(kStrEqual, parameter).words,
            "always \"" + std::string(119, 'x') + "…\"");
  EXPECT_EQ(KSExpectation::Of(kIntEnum, R"({"ruleParam":[1,2,3,4,5,6,7,8,9,10,11,12,13]})").words,
            "one of 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, …");
}

TEST(Expectation, SinglePrecisionIsToldWithItsOwnDigits) {
  const std::string parameter =
      R"({"maxValue":0.44999998807907104,"minValue":0.15000000596046448})";
  const KSExpectation expected = KSExpectation::Of(kIntRange, parameter, KSDataFloat);
  EXPECT_EQ(expected.words, "between 0.15 and 0.45");
  EXPECT_EQ(expected.most, JsonValue(0.44999998807907104));
}

}  // namespace
}  // namespace keelstone
