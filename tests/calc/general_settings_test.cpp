#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "calc/ksruleglobalsetting.h"
#include "calc/rulesettings.h"
#include "platform/json_reader.h"
#include "tests/support/log_capture.h"

namespace keelstone::testing {
namespace {

KSRuleGlobalSetting Document(const std::string& text) { return KSRuleGlobalSetting(text); }
EnumRuleType Type(int number) { return static_cast<EnumRuleType>(number); }

constexpr const char* kNames[] = {
    "strEqual", "strNoEqual",  "strEnum",     "strRegex", "intEqual", "intNoEqual", "intEnum",
    "intRange", "intConstant", "intIncrease", "intLEQ",   "intGEQ",   "tableMd5"};

TEST(GeneralSettings, DefaultsAreWrittenInFull) {
  const std::string lasting =
      R"({"dataCountMinLimit":3,"valueStatusCount":6,"changeFrequency":0.33000001311302185,)"
      R"("countEqualValueLimit":3,"timeIntervalLimit":216000,"dataCountHistory":30})";
  const std::string other = R"({"timeIntervalLimit":21600,"dataCountHistory":30})";
  const auto trend = [](const std::string& interval) {
    return R"({"dataCountMinLimit":10,"deltaEZero":0.20000000298023224,"deltaLZeroCount":1,)"
           R"("deltaLZeroValue":10,"timeIntervalLimit":)" +
           interval + R"(,"dataCountHistory":30})";
  };
  const std::string members[] = {
      lasting,
      other,
      R"({"dataCountMinLimit":10,"valueStatusCount":6,"changeFrequency":0.33000001311302185,)"
      R"("alertThreshold":0.10000000149011612,"timeIntervalLimit":216000,"dataCountHistory":30})",
      other,
      R"({"dataCountThreshold":10,"dataCountMinLimit":3,"condition0":{"deltaEZero":0.9},)"
      R"("condition1":{"deltaEZero":0.800000011920929},"condition2":{"deltaEZero":0.6600000262260437},)"
      R"("timeIntervalLimit":216000,"countEqualValueLimit":3,"dataCountHistory":30,"valueStatusCount":3})",
      other,
      R"({"dataCountMinLimit":10,"deltaEZero":0.6600000262260437,"alertThreshold":0.10000000149011612,)"
      R"("timeIntervalLimit":216000,"dataCountHistory":30,"valueStatusCount":3})",
      R"({"dataCountMinLimit":10,"valueStatusCount":6,"lowerBoundMinValue":0,"upperBoundMaxValue":100,)"
      R"("percentageMaxValue":95,"stdCoefficient":3,"timeIntervalLimit":216000,"dataCountHistory":30})",
      trend("216000"),
      trend("21600"),
      other,
      other,
      lasting,
  };
  const JsonValue defaults = DefaultGeneralSettings();
  ASSERT_EQ(defaults.size(), std::size(kNames));
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    SCOPED_TRACE(kNames[i]);
    EXPECT_EQ(RuleTypeName(Type(static_cast<int>(i))), std::string(kNames[i]));
    JsonValue expected;
    ASSERT_TRUE(JsonReader::Parse(members[i], expected));
    // As JSON objects have no order, whole objects are compared; the numbers by their text.
    EXPECT_EQ(defaults[kNames[i]], expected) << defaults[kNames[i]].toString();
  }
  JsonValue readBack;
  ASSERT_TRUE(JsonReader::Parse(defaults.toString(), readBack));
  EXPECT_EQ(readBack, defaults);
  const auto equal = KSRuleGlobalSetting(readBack).GetIntEqualSetting();
  EXPECT_EQ(equal->condition1DeltaEZero, static_cast<double>(0.8F));
  EXPECT_EQ(equal->condition0DeltaEZero, 0.9);
}

TEST(GeneralSettings, EveryFieldIsReadFromItsKey) {
  const auto document = Document(R"({
    "strEqual": {"dataCountMinLimit":1,"valueStatusCount":2,"changeFrequency":0.3,
                 "countEqualValueLimit":4,"timeIntervalLimit":5,"dataCountHistory":6},
    "tableMd5": {"dataCountMinLimit":11,"valueStatusCount":12,"changeFrequency":0.13,
                 "countEqualValueLimit":14,"timeIntervalLimit":15,"dataCountHistory":16},
    "strEnum": {"dataCountMinLimit":21,"valueStatusCount":22,"changeFrequency":0.23,
                "alertThreshold":0.24,"timeIntervalLimit":25,"dataCountHistory":26},
    "intEnum": {"dataCountMinLimit":31,"deltaEZero":0.32,"alertThreshold":0.33,
                "timeIntervalLimit":34,"dataCountHistory":35,"valueStatusCount":36},
    "intEqual": {"dataCountThreshold":41,"dataCountMinLimit":42,"condition0":{"deltaEZero":0.43},
                 "condition1":{"deltaEZero":0.44},"condition2":{"deltaEZero":0.45},
                 "timeIntervalLimit":46,"countEqualValueLimit":47,"dataCountHistory":48,
                 "valueStatusCount":49},
    "intRange": {"dataCountMinLimit":51,"valueStatusCount":52,"lowerBoundMinValue":53,
                 "upperBoundMaxValue":54,"percentageMaxValue":55,"stdCoefficient":56,
                 "timeIntervalLimit":57,"dataCountHistory":58},
    "intConstant": {"dataCountMinLimit":61,"deltaEZero":0.62,"deltaLZeroCount":63,
                    "deltaLZeroValue":64,"timeIntervalLimit":65,"dataCountHistory":66},
    "intIncrease": {"dataCountMinLimit":71,"deltaEZero":0.72,"deltaLZeroCount":73,
                    "deltaLZeroValue":74,"timeIntervalLimit":75,"dataCountHistory":76},
    "intLEQ": {"timeIntervalLimit":81,"dataCountHistory":82}  // and others
  })");
  const auto text = document.GetStrEqualSetting();
  EXPECT_EQ(text->dataCountMinLimit, 1);
  EXPECT_EQ(text->valueStatusCount, 2);
  EXPECT_EQ(text->changeFrequency, 0.3);
  EXPECT_EQ(text->countEqualValueLimit, 4);
  EXPECT_EQ(text->GetTimeIntervalLimit(), 5);
  EXPECT_EQ(text->GetDataCountHistory(), 6);
  const auto table = document.GetMD5TableSetting();
  EXPECT_EQ(table->dataCountMinLimit, 11);
  EXPECT_EQ(table->valueStatusCount, 12);
  EXPECT_EQ(table->changeFrequency, 0.13);
  EXPECT_EQ(table->countEqualValueLimit, 14);
  EXPECT_EQ(table->GetTimeIntervalLimit(), 15);
  EXPECT_EQ(table->GetDataCountHistory(), 16);
  const auto strEnum = document.GetStrEnumSetting();
  EXPECT_EQ(strEnum->dataCountMinLimit, 21);
  EXPECT_EQ(strEnum->valueStatusCount, 22);
  EXPECT_EQ(strEnum->changeFrequency, 0.23);
  EXPECT_EQ(strEnum->alertThreshold, 0.24);
  EXPECT_EQ(strEnum->GetTimeIntervalLimit(), 25);
  EXPECT_EQ(strEnum->GetDataCountHistory(), 26);
  const auto intEnum = document.GetIntEnumSetting();
  EXPECT_EQ(intEnum->dataCountMinLimit, 31);
  EXPECT_EQ(intEnum->deltaEZero, 0.32);
  EXPECT_EQ(intEnum->alertThreshold, 0.33);
  EXPECT_EQ(intEnum->GetTimeIntervalLimit(), 34);
  EXPECT_EQ(intEnum->GetDataCountHistory(), 35);
  EXPECT_EQ(intEnum->valueStatusCount, 36);
  const auto equal = document.GetIntEqualSetting();
  EXPECT_EQ(equal->dataCountThreshold, 41);
  EXPECT_EQ(equal->dataCountMinLimit, 42);
  EXPECT_EQ(equal->condition0DeltaEZero, 0.43);
  EXPECT_EQ(equal->condition1DeltaEZero, 0.44);
  EXPECT_EQ(equal->condition2DeltaEZero, 0.45);
  EXPECT_EQ(equal->GetTimeIntervalLimit(), 46);
  EXPECT_EQ(equal->countEqualValueLimit, 47);
  EXPECT_EQ(equal->GetDataCountHistory(), 48);
  EXPECT_EQ(equal->valueStatusCount, 49);
  const auto range = document.GetIntRangeSetting();
  EXPECT_EQ(range->dataCountMinLimit, 51);
  EXPECT_EQ(range->valueStatusCount, 52);
  EXPECT_EQ(range->lowerBoundMinValue, 53);
  EXPECT_EQ(range->upperBoundMaxValue, 54);
  EXPECT_EQ(range->percentageMaxValue, 55);
  EXPECT_EQ(range->stdCoefficient, 56);
  EXPECT_EQ(range->GetTimeIntervalLimit(), 57);
  EXPECT_EQ(range->GetDataCountHistory(), 58);
  const auto constant = document.GetIntConstSetting();
  EXPECT_EQ(constant->dataCountMinLimit, 61);
  EXPECT_EQ(constant->deltaEZero, 0.62);
  EXPECT_EQ(constant->deltaLZeroCount, 63);
  EXPECT_EQ(constant->deltaLZeroValue, 64);
  EXPECT_EQ(constant->GetTimeIntervalLimit(), 65);
  EXPECT_EQ(constant->GetDataCountHistory(), 66);
  const auto increase = document.GetIntIncreaseSetting();
  EXPECT_EQ(increase->dataCountMinLimit, 71);
  EXPECT_EQ(increase->deltaEZero, 0.72);
  EXPECT_EQ(increase->deltaLZeroCount, 73);
  EXPECT_EQ(increase->deltaLZeroValue, 74);
  EXPECT_EQ(increase->GetTimeIntervalLimit(), 75);
  EXPECT_EQ(increase->GetDataCountHistory(), 76);
  const auto limit = document.GetOtherSetting(kIntLEQ);
  EXPECT_EQ(limit->ruleType, kIntLEQ);
  EXPECT_EQ(limit->GetTimeIntervalLimit(), 81);
  EXPECT_EQ(limit->GetDataCountHistory(), 82);
}

TEST(GeneralSettings, AbsentMembersReadAsZero) {
  for (const KSRuleGlobalSetting& document : {KSRuleGlobalSetting(), Document("{}")}) {
    ASSERT_NE(document.GetIntEqualSetting(), nullptr);
    EXPECT_EQ(document.GetIntEqualSetting()->condition1DeltaEZero, 0);
    EXPECT_EQ(document.GetIntIncreaseSetting()->GetTimeIntervalLimit(), 0);
    EXPECT_EQ(document.GetStrEnumSetting()->alertThreshold, 0);
    for (int type = 0; type < kRuleTypeCount; ++type) {
      EXPECT_EQ(document.GetHistoryDataCount(Type(type)), 0);
      EXPECT_EQ(document.GetLiveTMInterval(Type(type)), 0);
    }
  }
  const auto one = Document(R"({"strEqual":{"dataCountHistory":50}})");
  EXPECT_EQ(one.GetHistoryDataCount(kStrEqual), 50);
  EXPECT_EQ(one.GetStrEqualSetting()->dataCountMinLimit, 0);
}

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
    const auto document = Document(std::string(R"({"intEqual":)") + whole + "}");
    EXPECT_EQ(document.GetIntEqualSetting(), nullptr) << whole;
    const auto nested = Document(std::string(R"({"intEqual":{"condition2":)") + whole + "}}");
    EXPECT_EQ(nested.GetIntEqualSetting(), nullptr) << whole;
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

TEST(GeneralSettings, ATextThatIsNoJsonIsLoggedAndEmpty) {
  LogCapture log;
  const auto document = Document("{\"intEqual\":");
  EXPECT_EQ(log.Messages(), std::vector<std::string>{"KSRuleGlobalSetting load fail."});
  EXPECT_TRUE(document.isNull());
  EXPECT_EQ(document.GetHistoryDataCount(kIntEqual), 0);
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
    EXPECT_EQ(settings.intRange == nullptr, document.GetIntRangeSetting() == nullptr);
    EXPECT_EQ(settings.tableMd5 == nullptr, document.GetMD5TableSetting() == nullptr);
  }
}

}  // namespace
}  // namespace keelstone::testing
