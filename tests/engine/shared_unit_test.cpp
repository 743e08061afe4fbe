#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/json_reader.h"
#include "keelstone/table_base.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/log_capture.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr int kRunsPerThread = 120;
constexpr std::int32_t kStart = 1700000000;

// Two instances at a time work on one unit while rows are being written: they share the
// definitions that are pending, and every row on disk must be whole.
TEST(SharedUnit, IsEvaluatedByTwoThreadsWhileRowsAreWritten) {
  LogCapture quiet(kLogError);
  TunedDomain domain;
  domain.TuneDefaults({{"intEqual", "timeIntervalLimit", 100},
                       {"intConstant", "timeIntervalLimit", 100},
                       {"intIncrease", "timeIntervalLimit", 100}});
  for (const char* name : {"state", "counter", "unknown type"}) {
    domain.files().AddVariableRule({"src", name, -1, "", name[0] == 'u' ? 0 : 1});
  }
  domain.manager()->InvalidateKSVariableRuleCaches();
  const Unit unit{domain.id()};
  const ObjectDefine object = unit.Object();
  auto follows =
      std::make_shared<RuleDefinitionData>(kIntIncrease, kRulePrescribed, R"({"ruleParam":0})");
  follows->variableType = 0;
  domain.manager()->SetRuleAlgParam({{"follows", follows}}, &object, "src", "prm",
                                    kVariableSourceParser);
  const std::uint64_t failedBefore = GetFailedWriteCount();

  std::atomic<bool> done{false};
  std::atomic<int> refused{0};
  const auto evaluate = [&](int run, std::int32_t offset) {
    const auto instance = unit.Start(kStart + run * 2000 + offset);
    for (const char* name : {"state", "counter", "unknown type", "follows", "state"}) {
      const int value = name[0] == 's' || name[0] == 'u' ? 5 : run;
      if (!instance->ProcessVariable(Value(name, 1, std::to_string(value)))) ++refused;
    }
    instance->SerializeLocalDB();
    instance->GetUpdateResultData()->ToJsonString();
  };
  const auto evaluateAll = [&](std::int32_t offset) {
    for (int run = 0; run < kRunsPerThread; ++run) evaluate(run, offset);
  };
  std::thread first(evaluateAll, 0);
  std::thread second(evaluateAll, 1);
  std::thread flush([&] {
    while (!done) DBWriteWrapper::Instance()->WriteDomain(domain.id());
  });
  std::thread reload([&] {
    while (!done) domain.manager()->InvalidateKSGlobalSettingCaches();
  });
  first.join();
  second.join();
  done = true;
  flush.join();
  reload.join();
  // How much was learned meanwhile is a matter of chance; after these it is certain.
  for (int run = kRunsPerThread; run < kRunsPerThread + 6; ++run) {
    evaluate(run, 0);
    DBWriteWrapper::Instance()->WriteDomain(domain.id());
  }

  EXPECT_EQ(refused, 0);
  EXPECT_EQ(GetFailedWriteCount(), failedBefore);
  EXPECT_TRUE(quiet.Lines().empty());
  const auto histories =
      domain.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  EXPECT_EQ(histories.size(), 3U);
  const auto params =
      domain.files().Select(kDbObjectRule, "select ruleAlgParameter from KSObjectRule");
  EXPECT_GE(params.size(), 3U);  // whether the counter has a rule is such a matter too
  for (const auto& texts : {histories, params}) {
    for (const std::string& text : texts) {
      JsonValue value;
      EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
    }
  }
  EXPECT_EQ(domain.files().Select(kDbObjectRule,
                                  "select ruleTypeId || ' ' || ruleAlgParameter from KSObjectRule "
                                  "where variableName in ('state', 'unknown type')"),
            (std::vector<std::string>{R"(4 {"ruleParam":5})", R"(4 {"ruleParam":5})"}));
}

}  // namespace
}  // namespace keelstone::testing
