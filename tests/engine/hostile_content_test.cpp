#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/text/utf8.h"
#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/odd_texts.h"
#include "tests/support/points.h"
#include "tests/support/tuned_domain.h"

/// Bytes and sizes that nobody expects, from the value to the database and the results.
namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;
constexpr int kLong = 300000;  // beyond every live interval

class HostileContent : public ::testing::Test {
 protected:
  HostileContent() { domain_.TuneDefaults(); }

  void Define(const std::string& name, int typeCode) {
    domain_.files().AddVariableRule({.source = "src", .name = name, .dataType = typeCode});
    domain_.manager()->InvalidateKSVariableRuleCaches();
  }
  /// Evaluates one value in a run of its own; its results.
  std::shared_ptr<KSRuleUpdateResultData> Evaluate(const VarInfo& variable, int run) const {
    const auto instance = unit_.Start(kNow + run * kLong);
    EXPECT_TRUE(instance->ProcessVariable(variable));
    unit_.Finish(*instance);
    return instance->GetUpdateResultData();
  }
  std::string StoredHistory(const std::string& name) {
    const auto rows = domain_.files().Select(
        kDbObjectHistory,
        "select HistoryData from KSObjectHistory where variableName = '" + name + "'");
    return rows.empty() ? "" : rows[0];
  }
  static void ExpectSound(const KSRuleUpdateResultData& results) {
    const std::string document = results.ToJsonString();
    EXPECT_EQ(FirstInvalidUtf8(document), document.size());
    EXPECT_TRUE(ValueOfText(document).isObject());
  }

  TunedDomain domain_;
  Unit unit_{domain_.id()};
};

TEST_F(HostileContent, TextsOfAnyBytesAreStoredLearnedAndToldAsTheyCame) {
  std::vector<std::string> texts = OddTexts();
  texts.push_back(MegabyteOfOddText());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    SCOPED_TRACE(JsonValue(texts[i].substr(0, 50)).toString());
    const std::string name = "text " + std::to_string(i);
    Define(name, 3);
    // Blanks at the ends are no part of a value.
    const std::string value = "<" + texts[i] + ">";
    const std::string param = "{\"ruleParam\":" + JsonValue(value).toString() + "}";
    std::vector<std::string> expected(5, value);
    expected.insert(expected.end(), {"other", "|" + texts[i] + "\t"});
    for (int run = 0; run < 7; ++run) {
      const auto results =
          Evaluate(Value(name, KSDataString, expected[static_cast<std::size_t>(run)], "", 3), run);
      ExpectSound(*results);
      ASSERT_EQ(results->GetKSRuleUpdateResults().size(), run == 4 ? 1U : 0U);
      ASSERT_EQ(results->GetKSAlertResults().size(), run < 5 ? 0U : 1U);
      if (run == 4) {
        EXPECT_TRUE(results->GetKSRuleUpdateResults()[0]->strRuleAlgParam == param);
        EXPECT_TRUE(results->GetKSValueUpdateResults().at(0)->strJsonValue == value);
      } else if (run == 6) {
        const JsonValue info = ValueOfText(results->GetKSAlertResults()[0]->GetAlertInfo());
        EXPECT_TRUE(info["_v"].asString() == expected[6] && info["_p"].asString() == param);
      }
    }
    StrHisotryData history;
    ASSERT_TRUE(history.FromString(StoredHistory(name)));
    ASSERT_EQ(history.points().size(), expected.size());
    for (std::size_t n = 0; n < expected.size(); ++n) {
      EXPECT_TRUE(history.points()[n].value == expected[n]);
    }
  }
}

TEST_F(HostileContent, TwentyMegabytesOfTextAreStoredAndComparedWhole) {
  Define("text", 3);
  std::string text(20U << 20U, 'x');
  text += "\"\\\n";
  VarInfo variable = Value("text", KSDataString, text, "", 3);
  Evaluate(variable, 0);
  StrHisotryData history;
  ASSERT_TRUE(history.FromString(StoredHistory("text")));
  ASSERT_EQ(history.GetDataCount(), 1);
  EXPECT_EQ(history.points()[0].value, text);

  JsonValue param(JsonType::Object);
  param["ruleParam"] = text;
  const auto definition =
      std::make_shared<RuleDefinitionData>(kStrEqual, kRulePrescribed, param.toString());
  definition->variableType = 3;
  const auto instance = unit_.Start(kNow);
  instance->SetCacheData({{"", {{"text", definition}}}});
  EXPECT_TRUE(instance->ProcessVariable(variable));
  const auto results = instance->GetUpdateResultData();
  EXPECT_TRUE(results->GetKSAlertResults().empty());
  EXPECT_TRUE(results->GetKSValueUpdateResults().empty());  // beyond what a result takes
  variable.valueText.back() = '.';
  EXPECT_TRUE(instance->ProcessVariable(variable));
  EXPECT_EQ(results->GetKSAlertResults().size(), 1U);
}

TEST_F(HostileContent, AMillionRowsOfATableAreStoredWhole) {
  Define("table", 11);
  VarInfo table = Value("table", KSDataTable, "0cc1", "", 11);
  table.value["columns"].append("n");
  JsonValue rows(JsonType::Array);
  for (int row = 0; row < 1'000'000; ++row) rows.append(JsonValue(JsonType::Array)).append(row);
  table.value["rows"] = std::move(rows);
  Evaluate(table, 0);
  TableHistoryData history;
  ASSERT_TRUE(history.FromString(StoredHistory("table")));
  ASSERT_EQ(history.GetDataCount(), 1);
  EXPECT_EQ(history.points()[0].content->GetTableText(), table.value.toString());
}

TEST_F(HostileContent, AHistoryOfAHundredThousandPointsIsCutToWhatIsKept) {
  IntHistoryData stored;
  for (int point = 0; point < 100'000; ++point) {
    stored.AddData(std::make_shared<KSDataPoint<std::int64_t>>(kNow - kLong - 200'000 + point, 7),
                   100'000);
  }
  ASSERT_EQ(stored.GetDataCount(), 100'000);
  auto definition =
      std::make_shared<RuleDefinitionData>(kIntEqual, kRuleLearned, R"({"ruleParam":7})");
  definition->variableType = 1;
  definition->enableFlag = true;
  const ObjectDefine object = unit_.Object();
  domain_.manager()->SetRuleAlgParam({{"count", definition}}, &object, "src", "prm",
                                     kVariableSourceParser);
  domain_.manager()->SetRuleHistoryData(stored.ToString(), &object, "src", "count", "prm",
                                        kVariableSourceParser);
  EXPECT_EQ(Evaluate(Value("count", KSDataInt64, "8"), 0)->GetKSAlertResults().size(), 1U);
  IntHistoryData kept;
  ASSERT_TRUE(kept.FromString(StoredHistory("count")));
  ASSERT_EQ(kept.GetDataCount(), 30);
  EXPECT_EQ(kept.points().back().value, 8);
  EXPECT_EQ(kept.points().front().time, stored.points()[100'000 - 29].time);
}

}  // namespace
}  // namespace keelstone::testing
