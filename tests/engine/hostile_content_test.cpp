#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "calc/ksruleglobalsetting.h"
#include "model/kshistorydata.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/tuned_domain.h"

/// Values and histories of sizes that nobody expects, from the value to the database.
namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;
constexpr int kLong = 300000;  // beyond every live interval

class HostileContent : public ::testing::Test {
 protected:
  HostileContent() { domain_.Tune(DefaultGeneralSettings().toString()); }

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
  std::string StoredHistory() {
    const auto rows =
        domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
    return rows.empty() ? "" : rows[0];
  }

  TunedDomain domain_;
  Unit unit_{domain_.id()};
};

TEST_F(HostileContent, TwentyMegabytesOfTextAreStoredAndComparedWhole) {
  Define("text", 3);
  std::string text(20U << 20U, 'x');
  text += "\"\\\n";
  VarInfo variable = Value("text", KSDataString, text, "", 3);
  Evaluate(variable, 0);
  StrHisotryData history;
  ASSERT_TRUE(history.FromString(StoredHistory()));
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
  ASSERT_TRUE(history.FromString(StoredHistory()));
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
  ASSERT_TRUE(kept.FromString(StoredHistory()));
  ASSERT_EQ(kept.GetDataCount(), 30);
  EXPECT_EQ(kept.points().back().value, 8);
  EXPECT_EQ(kept.points().front().time, stored.points()[100'000 - 29].time);
}

}  // namespace
}  // namespace keelstone::testing
