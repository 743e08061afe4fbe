#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "keelstone/algorithm_manager.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::testing {
namespace {

KSRuleAlgMgr& Manager() { return *KSRuleAlgMgr::Instance(); }

std::shared_ptr<IRuleBase> Make(int ruleType, int dataType, EnumAlgType algType = KSAlgNumerical) {
  return Manager().GetRuleByType(algType, static_cast<EnumRuleType>(ruleType),
                                 static_cast<EnumKSDataType>(dataType));
}

TEST(AlgorithmManager, EveryFamilyMakesEveryRuleWithItsOwnType) {
  for (const EnumAlgType algType : {KSAlgNumerical, KSAlgString, KSAlgTable}) {
    for (int ruleType = 0; ruleType < kRuleTypeCount; ++ruleType) {
      const auto rule = Make(ruleType, 1, algType);
      ASSERT_NE(rule, nullptr);
      EXPECT_EQ(rule->GetType(), ruleType);
      EXPECT_NE(rule, Make(ruleType, 1, algType));
    }
    for (const int none : {-2, -1, 13, 99}) EXPECT_EQ(Make(none, 1, algType), nullptr);
    for (int ruleType = 4; ruleType <= 11; ++ruleType) {  // numbers only
      for (const int dataType : {-1, 0, 4, 5, 77}) {
        EXPECT_EQ(Make(ruleType, dataType, algType), nullptr);
      }
    }
  }
  for (const int none : {-1, 3}) {
    EXPECT_EQ(Make(4, 1, static_cast<EnumAlgType>(none)), nullptr);
    EXPECT_EQ(Manager().CalculateRule(nullptr, nullptr, nullptr, KSDataInt64, "anywhere",
                                      static_cast<EnumAlgType>(none)),
              nullptr);
  }
}

TEST(AlgorithmManager, AlgorithmsAreCopiedAndAssigned) {
  const NumicalRuleCalculateAlg numbers;
  NumicalRuleCalculateAlg other(numbers);
  other = numbers;
  EXPECT_EQ(other.algType(), KSAlgNumerical);
  EXPECT_TRUE(KSRuleGlobalSetting("{}").isObject());
}

TEST(AlgorithmManager, MakesHistoryAndFeatureOfAText) {
  std::shared_ptr<HistoryDataBase> history;
  std::shared_ptr<KSDataFeature> feature;
  const auto read = [&](const std::string& text, EnumKSDataType dataType) {
    Manager().GetHistoryAndDataFeatrue(text, dataType, history, feature);
  };
  read(R"({"dataType":0,"dataList":[]})", KSDataUnknown);
  EXPECT_EQ(history, nullptr);
  EXPECT_EQ(feature, nullptr);
  read(R"({"dataType":2,"dataList":[{"liveTime":7,"dataValue":1.5}]})", KSDataFloat);
  ASSERT_NE(history, nullptr);
  EXPECT_EQ(history->GetLastTime(), 7);
  const auto before = feature;
  EXPECT_EQ(dynamic_cast<KSNumercialDataFeature<float>&>(*feature).lastPoint.value, 1.5F);

  // Refused after one point: a new history with what came before, and the old feature.
  read(R"({"dataType":1,"dataList":[{"liveTime":8,"dataValue":1},{"dataValue":"x"}]})",
       KSDataInt64);
  EXPECT_EQ(history->dataType, KSDataInt64);
  EXPECT_EQ(history->GetDataCount(), 1);
  EXPECT_EQ(feature, before);
}

}  // namespace
}  // namespace keelstone::testing
