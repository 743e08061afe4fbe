#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "calc/ksrulealgmgr.h"
#include "model/ksstringrules.h"
#include "model/ksstrregexrule.h"
#include "model/kstablemd5equalrule.h"
#include "model/numeric_rules.h"

namespace keelstone::testing {
namespace {

KSRuleAlgMgr& Manager() { return *KSRuleAlgMgr::Instance(); }

template <class Rule>
bool Is(const std::shared_ptr<IRuleBase>& rule) {
  return dynamic_cast<const Rule*>(rule.get()) != nullptr;
}

std::shared_ptr<IRuleBase> Make(int ruleType, int dataType, EnumAlgType algType = KSAlgNumerical) {
  return Manager().GetRuleByType(algType, static_cast<EnumRuleType>(ruleType),
                                 static_cast<EnumKSDataType>(dataType));
}

TEST(AlgorithmManager, IsOneForAllThreads) {
  std::vector<KSRuleAlgMgr*> seen(4);
  std::vector<std::thread> threads;
  for (auto& one : seen) threads.emplace_back([&one] { one = KSRuleAlgMgr::Instance(); });
  for (std::thread& thread : threads) thread.join();
  for (KSRuleAlgMgr* const one : seen) EXPECT_EQ(one, KSRuleAlgMgr::Instance());
}

TEST(AlgorithmManager, MakesTheClassOfEachRuleAndValueType) {
  EXPECT_TRUE(Is<KSIntEqualRule>(Make(4, 1)) && Is<KSFloatEqualRule>(Make(4, 2)) &&
              Is<KSDoubleEqualRule>(Make(4, 3)));
  EXPECT_TRUE(Is<KSIntNotEqual>(Make(5, 1)) && Is<KSFloatNotEqualRule>(Make(5, 2)) &&
              Is<KSDoubleNotEqualRule>(Make(5, 3)));
  EXPECT_TRUE(Is<KSIntEnumRule>(Make(6, 1)) && Is<KSFloatEnumRule>(Make(6, 2)) &&
              Is<KSDoubleEnumRule>(Make(6, 3)));
  EXPECT_TRUE(Is<KSIntRangeRule>(Make(7, 1)) && Is<KSFloatRangeRule>(Make(7, 2)) &&
              Is<KSDoubleRangeRule>(Make(7, 3)));
  EXPECT_TRUE(Is<KSIntConstantRule>(Make(8, 1)) && Is<KSFloatConstantRule>(Make(8, 2)) &&
              Is<KSDoubleConstantRule>(Make(8, 3)));
  EXPECT_TRUE(Is<KSIntIncreaseRule>(Make(9, 1)) && Is<KSFloatIncreaseRule>(Make(9, 2)) &&
              Is<KSDoubleIncreaseRule>(Make(9, 3)));
  EXPECT_TRUE(Is<KSIntLessEqualRule>(Make(10, 1)) && Is<KSFloatLessEqualRule>(Make(10, 2)) &&
              Is<KSDoubleLessEqualRule>(Make(10, 3)));
  EXPECT_TRUE(Is<KSIntGreaterEqualRule>(Make(11, 1)) && Is<KSFloatGreaterEqualRule>(Make(11, 2)) &&
              Is<KSDoubleGreaterEqualRule>(Make(11, 3)));
  for (const int dataType : {-1, 0, 1, 2, 3, 4, 5, 77}) {
    EXPECT_TRUE(Is<KSStringEqualRule>(Make(0, dataType)));
    EXPECT_TRUE(Is<KSStrNoEqualRule>(Make(1, dataType)));
    EXPECT_TRUE(Is<KSStringEnumRule>(Make(2, dataType)));
    EXPECT_TRUE(Is<KSStrRegexRule>(Make(3, dataType)));
    EXPECT_TRUE(Is<KSTableMd5EqualRule>(Make(12, dataType)));
  }
  for (int ruleType = 4; ruleType <= 11; ++ruleType) {
    for (const int dataType : {-1, 0, 4, 5, 77}) EXPECT_EQ(Make(ruleType, dataType), nullptr);
  }
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
  }
  for (const int none : {-1, 3}) {
    EXPECT_EQ(Make(4, 1, static_cast<EnumAlgType>(none)), nullptr);
    EXPECT_EQ(Manager().CalculateRule(nullptr, nullptr, nullptr, KSDataInt64, "anywhere",
                                      static_cast<EnumAlgType>(none)),
              nullptr);
  }
}

TEST(AlgorithmManager, LearnsNothingFromNothing) {
  for (const EnumAlgType algType : {KSAlgNumerical, KSAlgString, KSAlgTable}) {
    for (const int dataType : {0, 1, 2, 3, 4, 5}) {
      EXPECT_EQ(Manager().CalculateRule(nullptr, nullptr, nullptr,
                                        static_cast<EnumKSDataType>(dataType), "anywhere", algType),
                nullptr);
    }
  }
}

TEST(AlgorithmManager, MakesHistoryAndFeatureOfAText) {
  std::shared_ptr<HistoryDataBase> history;
  std::shared_ptr<KSDataFeature> feature;
  const auto read = [&](const std::string& text, int dataType) {
    Manager().GetHistoryAndDataFeatrue(text, static_cast<EnumKSDataType>(dataType), history,
                                       feature);
  };
  for (const int none : {0, 6, -1}) {
    read(R"({"dataType":0,"dataList":[]})", none);
    EXPECT_EQ(history, nullptr);
    EXPECT_EQ(feature, nullptr);
  }
  read(R"({"dataType":2,"dataList":[{"liveTime":7,"dataValue":1.5}]})", 2);
  ASSERT_NE(history, nullptr);
  EXPECT_EQ(history->dataType, KSDataFloat);
  EXPECT_EQ(history->GetLastTime(), 7);
  const auto before = feature;
  ASSERT_NE(dynamic_cast<KSNumercialDataFeature<float>*>(feature.get()), nullptr);
  EXPECT_EQ(dynamic_cast<KSNumercialDataFeature<float>&>(*feature).lastPoint.value, 1.5F);

  // Refused after one point: a new history with what came before, and the old feature.
  read(R"({"dataType":1,"dataList":[{"liveTime":8,"dataValue":1},{"dataValue":"x"}]})", 1);
  EXPECT_EQ(history->dataType, KSDataInt64);
  EXPECT_EQ(history->GetDataCount(), 1);
  EXPECT_EQ(feature, before);
  read("", 3);
  EXPECT_EQ(history->GetDataCount(), 0);
  EXPECT_EQ(feature, before);
}

}  // namespace
}  // namespace keelstone::testing
