#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "settings/rule_settings.h"
#include "tests/support/log_capture.h"

namespace keelstone::testing {
namespace {

KSRuleGlobalSetting Document(const std::string& text) { return KSRuleGlobalSetting(text); }
EnumRuleType Type(int number) { return static_cast<EnumRuleType>(number); }

constexpr const char* kNames[] = {
    "strEqual", "strNoEqual",  "strEnum",     "strRegex", "intEqual", "intNoEqual", "intEnum",
    "intRange", "intConstant", "intIncrease", "intLEQ",   "intGEQ",   "tableMd5"};

TEST(GeneralSettings, MembersOfTheWrongKindAreRefused) {
  for (const char* member : {R"("x")", "{}", "[]", "2147483648", "1e10"}) {
    const auto document =
        Document(std::string(R"({"intRange":{"timeIntervalLimit":)") + member +
                 R"(,"dataCountHistory":7},"intLEQ":{"dataCountHistory":)" + member + "}}");
    EXPECT_EQ(document.GetIntRangeSetting(), nullptr) << member;
    EXPECT_EQ(document.GetHistoryDataCount(kIntRange), 30) << member;
    EXPECT_EQ(document.GetLiveTMInterval(kIntRange), 21600) << member;
    EXPECT_EQ(document.GetOtherSetting(kIntLEQ), nullptr) << member;
  }
  for (const char* whole : {"5", R"("x")", "[]", "true"}) {
    const std::string member = std::string(R"({"intEqual":)") + whole + "}";
    EXPECT_EQ(Document(member).GetIntEqualSetting(), nullptr) << whole;
    // A document that is no object refuses them all.
    EXPECT_EQ(Document(whole).GetIntEnumSetting(), nullptr) << whole;
    EXPECT_EQ(Document(whole).GetHistoryDataCount(kIntGEQ), 30) << whole;
  }
  const auto converted = Document(R"({"intRange":{"stdCoefficient":2.9,"valueStatusCount":true,)"
                                  R"("dataCountMinLimit":null}})")
                             .GetIntRangeSetting();
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(converted->stdCoefficient, 2);
  EXPECT_EQ(converted->valueStatusCount, 1);
  EXPECT_EQ(converted->dataCountMinLimit, 0);
}

/// Each type's sub-object holds its number in both limits; the nameless one holds 99 and 98.
std::string NumberedDocument() {
  std::string text = R"({"":{"timeIntervalLimit":99,"dataCountHistory":98})";
  for (int type = 0; type < kRuleTypeCount; ++type) {
    text += std::string(",\"") + kNames[type] +
            "\":{\"timeIntervalLimit\":" + std::to_string(type) +
            ",\"dataCountHistory\":" + std::to_string(type + 20) + "}";
  }
  return text + "}";
}

TEST(GeneralSettings, LimitsOfEveryType) {
  const auto document = Document(NumberedDocument());
  for (int type = 0; type < kRuleTypeCount; ++type) {
    EXPECT_EQ(document.GetHistoryDataCount(Type(type)), type + 20) << type;
    // The table's interval is read where nobody has a name.
    EXPECT_EQ(document.GetLiveTMInterval(Type(type)), type == kTableMd5 ? 99 : type) << type;
  }
  for (const int none : {13, -5, 1000, -2, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(document.GetHistoryDataCount(Type(none)), 98) << none;
    EXPECT_EQ(document.GetLiveTMInterval(Type(none)), 99) << none;
    EXPECT_STREQ(RuleTypeName(Type(none)), "") << none;
  }
  EXPECT_EQ(document.GetOtherSetting(kRuleTypeNone), nullptr);
  EXPECT_EQ(document.GetHistoryDataCount(kRuleTypeNone), 30);
  EXPECT_EQ(document.GetLiveTMInterval(kRuleTypeNone), 21600);
  // Types with settings of their own, asked for as others, have none by their name.
  EXPECT_EQ(document.GetOtherSetting(kIntEqual)->GetTimeIntervalLimit(), 99);
}

TEST(RuleSettingsOnce, AnswerLikeTheDocument) {
  for (const std::string& text :
       {NumberedDocument(), std::string("{}"), DefaultGeneralSettings().toString(),
        std::string(R"({"intRange":5,"intLEQ":[],"tableMd5":"x","":{"timeIntervalLimit":7}})")}) {
    const auto document = Document(text);
    const RuleSettings settings(document);
    for (const int type : {-1000, -5, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 500}) {
      EXPECT_EQ(settings.HistoryDataCount(Type(type)), document.GetHistoryDataCount(Type(type)))
          << type;
      EXPECT_EQ(settings.LiveInterval(Type(type)), document.GetLiveTMInterval(Type(type))) << type;
    }
    EXPECT_EQ(settings.Of<kIntRange>() == nullptr, document.GetIntRangeSetting() == nullptr);
    EXPECT_EQ(settings.Of<kTableMd5>() == nullptr, document.GetMD5TableSetting() == nullptr);
  }
}

}  // namespace
}  // namespace keelstone::testing
