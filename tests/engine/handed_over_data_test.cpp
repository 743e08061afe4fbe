#include <gtest/gtest.h>

#include "keelstone/data_cache_queue.h"
#include "keelstone/filesystem.h"
#include "keelstone/rule_enums.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;

class HandedOverData : public ::testing::Test {
 protected:
  HandedOverData() {
    domain_.TuneDefaults();
    const ObjectDefine object = unit_.Object();
    auto definition =
        std::make_shared<RuleDefinitionData>(kIntLEQ, kRulePrescribed, R"({"ruleParam":80})");
    definition->variableType = 1;
    domain_.manager()->SetRuleAlgParam({{"load", definition}}, &object, "src", "prm",
                                       kVariableSourceParser);
  }
  std::unique_ptr<KSRuleInstance> Instance() const {
    return std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure", "prm",
                                            domain_.id(), "", kNow, false);
  }
  static std::size_t Alerts(KSRuleInstance& instance, const std::string& value) {
    EXPECT_TRUE(instance.ProcessVariable(Value("load", KSDataInt64, value)));
    return JsonText(instance).find("alertItems\":[]") == std::string::npos ? 1 : 0;
  }
  static std::string JsonText(KSRuleInstance& instance) {
    return instance.GetUpdateResultData()->ToJsonString();
  }

  TunedDomain domain_;
  Unit unit_{domain_.id()};
};

TEST_F(HandedOverData, AnInstanceLoadsNothingItself) {
  // What is handed over stands against what lies in the database.
  auto definition =
      std::make_shared<RuleDefinitionData>(kIntLEQ, kRulePrescribed, R"({"ruleParam":90})");
  definition->variableType = 1;
  const auto instance = Instance();
  instance->SetCacheData({{"", {{"load", definition}, {"only here", nullptr}}}});
  instance->SetHistoryData({});
  EXPECT_TRUE(instance->InitCacheData());
  EXPECT_TRUE(instance->InitHistoryData());
  EXPECT_TRUE(instance->IsVarDefineRule("only here"));
  EXPECT_TRUE(instance->IsDefineRule());
  EXPECT_EQ(Alerts(*instance, "85"), 0U);
  EXPECT_EQ(Alerts(*instance, "95"), 1U);
  EXPECT_FALSE(instance->ProcessVariable(Value("only here", KSDataInt64, "1")));
}

}  // namespace
}  // namespace keelstone::testing
