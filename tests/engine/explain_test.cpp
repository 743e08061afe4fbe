#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;

JsonValue Parsed(const std::string& text) {
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
  return value;
}

class Explained : public ::testing::Test {
 protected:
  Explained() { domain_.TuneDefaults(); }

  std::unique_ptr<KSRuleInstance> Instance(const RuleDefinitionData& definition,
                                           const std::string& history = {},
                                           std::int32_t time = kNow) {
    auto instance = std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure",
                                                     "prm", domain_.id(), "", time, false);
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

TEST_F(Explained, ARuleLearnedWithTheValueItJudgesIsExplainedAsItNowIs) {
  const RuleDefinitionData none{kRuleTypeNone, kRuleLearned, ""};
  const std::string history = HistoryOf({9, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12});
  const auto learning = Instance(none, history);
  ASSERT_TRUE(learning->ProcessVariable(Value("v", KSDataInt64, "13", "eth0")));
  ASSERT_EQ(learning->GetExplanations().size(), 1U);
  const KSAlertExplanation alert = learning->GetExplanations()[0];
  EXPECT_EQ(alert.ruleType, kIntEqual);
  EXPECT_EQ(alert.expected.words, "always 12");
  EXPECT_EQ(alert.learnedTime, kNow);
  EXPECT_EQ(alert.historyPoints, 12);  // without the value itself
  EXPECT_EQ(alert.firstTime, kNow - 12 * 3600);
  EXPECT_EQ(alert.lastTime, kNow - 3600);
  ASSERT_EQ(alert.lastValues.size(), KSAlertExplanation::kMostLastValues);
  EXPECT_EQ(alert.lastValues.front().time, kNow - 10 * 3600);
  EXPECT_EQ(alert.lastValues.back().value, JsonValue(12));
  ASSERT_EQ(learning->GetUpdateResultData()->GetKSRuleUpdateResults().size(), 1U);
  EXPECT_TRUE(learning->GetUpdateResultData()->GetKSRuleUpdateResults()[0]->isLearned);

  // A rule that was there before: nothing tells when it was learned.
  const auto later = Instance({kIntEqual, kRuleLearned, R"({"ruleParam":12})"}, history, kNow - 1);
  ASSERT_TRUE(later->ProcessVariable(Value("v", KSDataInt64, "13", "eth0")));
  ASSERT_EQ(later->GetExplanations().size(), 1U);
  EXPECT_FALSE(later->GetExplanations()[0].learnedTime);
  EXPECT_EQ(later->GetExplanations()[0].historyPoints, 12);
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

TEST_F(Explained, ATableIsComparedWithTheNewestThatHadTheExpectedDigest) {
  const auto tableOf = [](const std::string& digest, const std::string& rows) {
    VarInfo table = Value("v", KSDataTable, digest, "eth0");
    table.value = Parsed(R"({"columns":["p","n"],"rows":)" + rows + "}");
    table.tableKeys = {"p"};
    return table;
  };
  // What a learning run stores is what the next one compares with.
  std::string history;
  const RuleDefinitionData rule{kTableMd5, kRuleLearned, R"({"hashCmp":"aa"})"};
  const auto judge = [&](std::int32_t time, const VarInfo& table) {
    auto instance = Instance(rule, history, time);
    EXPECT_TRUE(instance->ProcessVariable(table));
    instance->SerializeLocalDB();
    DBWriteWrapper::Instance()->WriteDomain(domain_.id());
    const auto stored =
        domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
    if (!stored.empty()) history = stored[0];
    return instance;
  };
  const auto unknown = judge(kNow, tableOf("bb", R"([["a",1]])"));
  ASSERT_EQ(unknown->GetExplanations().size(), 1U);
  EXPECT_FALSE(unknown->GetExplanations()[0].table);
  EXPECT_EQ(
      unknown->GetExplanations()[0].Predicate(),
      "is another table, with digest \"bb\", expected the table with digest \"aa\" (learned)");
  judge(kNow + 1000000, tableOf("aa", R"([["a",1],["b",1]])"));
  judge(kNow + 2000000, tableOf("aa", R"([["a",1],["b",2]])"));
  const auto known = judge(kNow + 3000000, tableOf("cc", R"([["b",3],["c",1]])"));
  ASSERT_EQ(known->GetExplanations().size(), 1U);
  const auto& table = known->GetExplanations()[0].table;
  ASSERT_TRUE(table);
  EXPECT_EQ(table->keys, std::vector<std::string>{"p"});
  EXPECT_EQ(table->InWords(), "1 row added (c), 1 row removed (a), 1 row changed (b)");
  EXPECT_EQ(table->changed.rows[0]["before"]["n"], JsonValue(2));
}

}  // namespace
}  // namespace keelstone::testing
