#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/history_data.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;

class Explained : public ::testing::Test {
 protected:
  Explained() { domain_.TuneDefaults(); }

  std::unique_ptr<KSRuleInstance> Instance(const RuleDefinitionData& definition,
                                           const std::string& history = {}) {
    auto instance = std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure",
                                                     "prm", domain_.id(), "", kNow, false);
    auto own = std::make_shared<RuleDefinitionData>(definition);
    own->variableType = 1;
    instance->SetCacheData({{"eth0", {{"v", own}}}});
    instance->SetHistoryData({{"eth0", {{"v", history}}}});
    instance->InitCacheData();
    instance->InitHistoryData();
    instance->SetExplain(true);
    return instance;
  }

  TunedDomain domain_;
};

/// A history of one number an hour, the newest an hour before kNow.
std::string HistoryOf(const std::vector<int>& values) {
  IntHistoryData history;
  std::int64_t time = kNow - 3600 * static_cast<std::int64_t>(values.size());
  for (const int value : values) {
    history.AddData(std::make_shared<KSDataPoint<std::int64_t>>(time, value), 1000);
    time += 3600;
  }
  return history.ToString();
}

TEST_F(Explained, AVerdictIsGivenOnlyByARuleThatJudges) {
  const auto verdictOf = [this](const RuleDefinitionData& definition, const std::string& history,
                                EnumKSDataType dataType) {
    const auto instance = Instance(definition, history);
    instance->ProcessVariable(Value("v", dataType, "1", "eth0"));
    return instance->GetLastVerdict();
  };
  EXPECT_EQ(verdictOf({kIntLEQ, kRulePrescribed, R"({"ruleParam":5})"}, "", KSDataInt64),
            kVerdictFits);
  // No rule, one that cannot judge such a value, and one that takes its first value.
  EXPECT_EQ(verdictOf({kRuleTypeNone, kRuleLearned, ""}, "", KSDataInt64), kVerdictNone);
  EXPECT_EQ(verdictOf({kStrEqual, kRulePrescribed, R"({"ruleParam":"5"})"}, "", KSDataInt64),
            kVerdictNone);
  EXPECT_EQ(verdictOf({kIntIncrease, kRulePrescribed, ""}, "", KSDataInt64), kVerdictNone);
  // A counter whose rule is learned with this value, and a history that is refused.
  EXPECT_EQ(verdictOf({kRuleTypeNone, kRuleLearned, ""},
                      HistoryOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}), KSDataInt64),
            kVerdictNone);
  EXPECT_EQ(verdictOf({kIntLEQ, kRuleLearned, R"({"ruleParam":0})"}, "torn", KSDataInt64),
            kVerdictNone);

  const auto instance = Instance({kIntLEQ, kRulePrescribed, R"({"ruleParam":0})"});
  instance->ProcessVariable(Value("v", KSDataInt64, "1", "eth0"));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictAlert);
  EXPECT_FALSE(instance->ProcessVariable(Value("undefined", KSDataInt64, "1", "eth0")));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictNone);
  EXPECT_EQ(instance->GetExplanations().size(), 1U);
  instance->SetExplain(false);
  instance->ProcessVariable(Value("v", KSDataInt64, "1", "eth0"));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictNone);
  EXPECT_TRUE(instance->GetExplanations().empty());
}

}  // namespace
}  // namespace keelstone::testing
