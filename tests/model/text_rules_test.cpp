#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/text/base64.h"
#include "keelstone/algorithm_manager.h"
#include "keelstone/json_reader.h"
#include "model/rules/bounded_regex.h"
#include "model/rules/regex_rule.h"
#include "model/rules/string_rules.h"
#include "model/rules/table_md5_rule.h"
#include "tests/support/log_capture.h"
#include "tests/support/odd_texts.h"
#include "tests/support/points.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

using ::testing::IsEmpty;
using std::string_literals::operator""s;

std::string Quote(const std::string& bytes) { return JsonValue(bytes).toString(); }

std::shared_ptr<RuleDefinitionData> Definition(const std::string& param,
                                               const std::string& history = "") {
  auto definition = std::make_shared<RuleDefinitionData>();
  definition->ruleParam = param;
  definition->history = history;
  return definition;
}

template <class Rule>
std::shared_ptr<Rule> RuleOf(const std::string& param) {
  auto rule = std::make_shared<Rule>();
  rule->Init(Definition(param), "no such domain");
  return rule;
}

// ---- What breaks a rule, and what is its golden value

struct Judged {
  std::string value;
  bool breaks;
};

/// A value that keeps a string rule becomes golden as it came; one that breaks it does not.
template <class Rule>
void ExpectJudgements(const std::string& param, const std::vector<Judged>& cases) {
  std::int64_t time = 100;
  for (const auto& [value, breaks] : cases) {
    SCOPED_TRACE(param + " on " + Quote(value));
    const auto rule = RuleOf<Rule>(param);
    const auto point = PointOf<std::string>(++time, value);
    EXPECT_EQ(rule->CheckAlert(point), breaks);
    EXPECT_EQ(rule->GetRuleKSValueTime(), -1);
    EXPECT_EQ(rule->CheckGoldenValue(point), !breaks);
    EXPECT_EQ(rule->GetRuleKSValue(), breaks ? "" : value);
    EXPECT_EQ(rule->GetRuleKSValueTime(), breaks ? -1 : time);
    EXPECT_EQ(rule->GetRuleParam(), param);
  }
}

TEST(StringNoEqualRule, BreaksOnTheListedTexts) {
  ExpectJudgements<KSStrNoEqualRule>(
      R"({"ruleParam":["down","idle"]})",
      {{"down", true}, {"idle", true}, {"down ", false}, {"Down", false}, {"", false}});
  ExpectJudgements<KSStrNoEqualRule>(R"({"ruleParam":[]})", {{"", false}});
}

TEST(StringRegexRule, SearchesWithoutLetterCase) {
  ExpectJudgements<KSStrRegexRule>(
      R"({"ruleParam":"ETH.*"})",
      {{"port eth0", false}, {"Eth", false}, {"et h", true}, {"", true}, {"x\neth", false}});
  ExpectJudgements<KSStrRegexRule>(R"({"ruleParam":"^up$"})",
                                   {{"UP", false}, {"up ", true}, {"down", true}});
  ExpectJudgements<KSStrRegexRule>(R"({"ruleParam":""})", {{"", false}, {"anything", false}});
  ExpectJudgements<KSStrRegexRule>(R"({"ruleParam":"a\\x00b"})",
                                   {{"-a\0b-"s, false}, {"ab", true}});
  ExpectJudgements<KSStrRegexRule>(R"({"ruleParam":"\\d{3}(?=\\.)."})",
                                   {{"ver 123.4", false}, {"ver 12.4", true}});
}

TEST(TextRules, IgnorePointsOfOtherTypes) {
  const auto number = std::make_shared<KSDataPoint<std::int64_t>>(5, 7);
  for (const std::shared_ptr<IRuleBase>& rule : std::vector<std::shared_ptr<IRuleBase>>{
           RuleOf<KSStringEqualRule>(""), RuleOf<KSStringEnumRule>(""),
           RuleOf<KSStrNoEqualRule>(""), RuleOf<KSStrRegexRule>(R"({"ruleParam":"7"})"),
           RuleOf<KSTableMd5EqualRule>("")}) {
    EXPECT_FALSE(rule->CheckAlert(number));
    EXPECT_FALSE(rule->CheckAlert(nullptr));
    EXPECT_FALSE(rule->CheckGoldenValue(number));
    EXPECT_FALSE(rule->CheckGoldenValue(nullptr));
    EXPECT_FALSE(rule->CheckRule("no such domain"));
    EXPECT_FALSE(rule->UpdateRule());
  }
  // The digest of a table is a text, but a string is no table.
  EXPECT_FALSE(RuleOf<KSTableMd5EqualRule>("")->CheckAlert(PointOf<std::string>(5, "digest")));
}

// ---- Regular expressions that do not work out

TEST(RegexMatch, GivesUpOnCostlySearchesAndSaysSo) {
  // Each of these would take from hours to the end of time if it were searched to its end.
  std::string kinds;
  for (int i = 0; i < 40; ++i) kinds += "x[0-9]+y" + std::to_string(i) + "(z|w)?|";
  const std::string megabyte = std::string(1U << 20U, 'a') + "x";
  for (const std::string& pattern :
       std::vector<std::string>{"(a+)+$", "(a|aa)+$", "a.*b", "(?=a*c)b", "(.*)(.*)(.*)(.*)(.*)y",
                                "(?:" + kinds + "a).*b", "(?>[ab]a*+)c"}) {
    SCOPED_TRACE(pattern.substr(0, 30));
    const LogCapture log;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(KSStrRegexRule::StrIsMatch(megabyte, pattern));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(120));
    const auto messages = log.Messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].rfind("regex catch ", 0), 0U) << messages[0];
  }
}

TEST(RegexMatch, RefusesWhatCannotBeBoundedAndNothingElse) {
  const std::string calls = "regex pattern calls a part of itself";
  const std::string accepts = "regex pattern holds the verb (*ACCEPT)";
  const std::string repeats = "regex pattern repeats a verb";
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"(a(?1)?b)", "ab", calls},
      {"a(?R)?b", "ab", calls},
      {"(?<n>a)(?&n)", "aa", calls},
      {"(?>(*ACCEPT)a)*", "a", accepts},
      {R"(\\(*ACCEPT))", "\\", accepts},
      {"(?:(*PRUNE)a)*b", "ab", repeats},
      {"(?:x(*THEN)){2}", "xx", repeats},
      // Where the same characters are no verb and no call.
      {"[(*A]", "x*", ""},
      {"\\Q(*ACCEPT)\\E", "(*accept)", ""},
      {"\\(*A", "((a", ""},
      {"[(?1)]+(?#(?R)", "1", ""},
      {"\"[^\"]*\"(*SKIP)(*FAIL)|up", "\"up\" up", ""},
      {"(?:a(*PRUNE)b)?c", "abc", ""},
  };
  for (const auto& [pattern, value, fault] : cases) {
    SCOPED_TRACE(pattern);
    const LogCapture log;
    EXPECT_EQ(PatternFault(pattern), fault);
    EXPECT_EQ(KSStrRegexRule::StrIsMatch(value, pattern), fault.empty());
    EXPECT_EQ(KSStrRegexRule::StrIsMatch("-", pattern), false);
    EXPECT_EQ(log.Messages().size(), fault.empty() ? 0U : 2U);
  }
}

std::string Repeated(std::string_view unit, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += unit;
  return text;
}

// Each explodes in another place: in the characters of one state, in the counters of
// repeats, between two characters.
TEST(RegexMatch, GivesUpWhereTheMatcherWorksOutOfSight) {
  const std::string empty = Repeated("(?:)", 5'000);
  for (const auto& [pattern, value] : std::vector<std::pair<std::string, std::string>>{
           {"[ab]*[ab]*[ab]*[ab]*c", std::string(15'000, 'a')},
           {"(?:(?:ab)*c?)*d", Repeated("ab", 8'000)},
           {"(?:" + empty + "a)*b", std::string(10'000, 'a')}}) {
    SCOPED_TRACE(pattern.substr(0, 30));
    const LogCapture log;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(KSStrRegexRule::StrIsMatch(value, pattern));
    EXPECT_FALSE(KSStrRegexRule::StrIsMatch(value, pattern));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(120));
    EXPECT_EQ(log.Messages().size(), 2U);
  }
}

TEST(RegexMatch, SearchesLongTextsToTheirEnd) {
  const LogCapture log;
  std::string text = MegabyteOfOddText();
  EXPECT_FALSE(KSStrRegexRule::StrIsMatch(text, "needle [0-9]+ END"));
  text += "Needle 12 end";
  EXPECT_TRUE(KSStrRegexRule::StrIsMatch(text, "needle [0-9]+ END"));
  EXPECT_TRUE(KSStrRegexRule::StrIsMatch(text, "^m.*END$"));
  EXPECT_THAT(log.Messages(), IsEmpty());
}

// ---- Tables

constexpr const char* kTable =
    R"({"columns":["prefix","via"],"rows":[["10.0.0.0/8","\u0000\"}{\\"],[1.5,null]]})";

std::shared_ptr<KSTableDataPoint> TableAt(std::int64_t time, const std::string& digest,
                                          const std::string& table = kTable) {
  return TablePoint(time, digest, table, {"via", "prefix"}, true);
}

TEST(TableGoldenValue, IsTheTableWithItsDigestAdded) {
  TablMd5EqualData data;
  data.golden = *TableAt(5, "d\xff");
  const LogCapture log;
  const std::string table = kTable;
  EXPECT_EQ(data.GetGlodenValue(),
            table.substr(0, table.size() - 1) +
                ",\"hashCmp\":\"d\xff\",\"hashSort\":true,\"hashColumns\":[\"prefix\",\"via\"]}");
  EXPECT_EQ(data.GetGlodenValueTime(), 5);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(TableGoldenValue, IsEmptyWithOneErrorLineWhenTheContentIsDamaged) {
  struct Case {
    const char* about;
    std::optional<std::string> encoded;
    std::optional<std::int64_t> size;
    std::string table = kTable;
  };
  std::string frame = kTable;
  ASSERT_TRUE(CompressString(frame));
  const auto encoded = [](std::string bytes) {
    std::string text;
    AppendBase64(text, bytes);
    return text;
  };
  std::string flipped = frame;
  flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 4);
  const std::int64_t right = static_cast<std::int64_t>(std::string(kTable).size());
  for (const Case& c : std::vector<Case>{{"nothing", "", {}},
                                         {"no base64", "not base64!", {}},
                                         {"no frame", encoded("plain text"), {}},
                                         {"damaged frame", encoded(flipped), {}},
                                         {"too small a size", {}, right - 1},
                                         {"too large a size", {}, right + 1},
                                         {"vast size", {}, std::int64_t{1} << 62U},
                                         {"an empty text", {}, {}, ""},
                                         {"an array", {}, {}, "[1]"},
                                         {"more than a table", {}, {}, "{}{}"}}) {
    SCOPED_TRACE(c.about);
    TablMd5EqualData data;
    data.golden = *TableAt(5, "d", c.table);
    auto content = *data.golden.content;
    if (c.encoded) content.encodedTable = *c.encoded;
    if (c.size) content.rawValueSize = *c.size;
    data.golden.content = std::make_shared<TableContent>(content);
    const LogCapture log;
    EXPECT_EQ(data.GetGlodenValue(), "");
    EXPECT_EQ(data.GetGlodenValueTime(), 5);
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, kLogError);
    EXPECT_EQ(lines[0].function, "TablMd5EqualData::GetGlodenValue");
    EXPECT_EQ(lines[0].source, "ksruledata");
    if (c.table == kTable) {
      EXPECT_EQ(lines[0].message, "Uncompress table value is failure");
    }
  }
}

}  // namespace
}  // namespace keelstone::testing
