#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "keelstone/algorithm_manager.h"

namespace keelstone::testing {
namespace {

KSRuleAlgMgr& Manager() { return *KSRuleAlgMgr::Instance(); }

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
