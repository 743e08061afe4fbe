#include "keelstone/rule_instance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/clock.h"
#include "keelstone/ini_reader.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/log_capture.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr std::int32_t kNow = 1700000000;

class RuleInstance : public ::testing::Test {
 protected:
  RuleInstance() { domain_.TuneDefaults(); }

  void Define(const std::string& name, int ruleType = -1, const std::string& param = {},
              int typeCode = 1) {
    domain_.files().AddVariableRule({"src", name, ruleType, param, typeCode});
    domain_.manager()->InvalidateKSVariableRuleCaches();
  }
  void Prescribe(const std::string& name, int ruleType, const std::string& param,
                 const std::string& interfaceValue = {}, int generateType = kRulePrescribed) {
    auto definition = std::make_shared<RuleDefinitionData>(ruleType, generateType, param);
    definition->variableType = 0;
    const ObjectDefine object = unit_.Object(interfaceValue);
    domain_.manager()->SetRuleAlgParam({{name, definition}}, &object, "src", "prm",
                                       kVariableSourceParser);
  }
  void StoreHistory(const std::string& name, const std::string& text,
                    const std::string& interfaceValue = {}) {
    const ObjectDefine object = unit_.Object(interfaceValue);
    domain_.manager()->SetRuleHistoryData(text, &object, "src", name, "prm", kVariableSourceParser);
  }
  std::vector<std::string> Histories() {
    return domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  }
  std::vector<std::string> Rules() {
    return domain_.files().Select(kDbObjectRule,
                                  "select ruleTypeId || ' ' || ruleAlgParameter from KSObjectRule");
  }
  /// One run with these values; answers what ProcessVariable did.
  std::vector<bool> Run(std::int32_t time, const std::vector<VarInfo>& values,
                        bool onDemand = false) {
    const auto instance = unit_.Start(time, onDemand);
    std::vector<bool> answers;
    for (const VarInfo& value : values) answers.push_back(instance->ProcessVariable(value));
    unit_.Finish(*instance);
    results_ = instance->GetUpdateResultData();
    return answers;
  }
  /// What the engine itself logged, without the timings.
  std::vector<LogCapture::Line> Log() const {
    std::vector<LogCapture::Line> lines = log_.Lines();
    std::erase_if(lines, [](const auto& line) { return line.module != "FS_Keelstone"; });
    return lines;
  }
  std::string Document() const { return results_->ToJsonString(); }
  static constexpr const char* kNothing = R"({"ruleItems":[],"valueItems":[],"alertItems":[]})";

  TunedDomain domain_;
  Unit unit_{domain_.id()};
  LogCapture log_;
  std::shared_ptr<KSRuleUpdateResultData> results_;
};

TEST_F(RuleInstance, RefusesWhatIsNotDefinedOrNotEnabled) {
  domain_.files().AddVariableRule({"src", "off", -1, "", 1, 0, false});
  domain_.files().AddVariableRule({"src", "customer off", -1, "", 1, 2, true});
  domain_.files().AddVariableRule({"src", "customer on", -1, "", 1, 1, false});
  domain_.files().AddVariableRule({"other", "elsewhere"});
  domain_.manager()->InvalidateKSVariableRuleCaches();
  EXPECT_THAT(Run(kNow, {Value("off", 1, "5"), Value("customer off", 1, "5"),
                         Value("customer on", 1, "5"), Value("elsewhere", 1, "5")}),
              ElementsAre(false, false, true, false));
  EXPECT_THAT(log_.Messages(), ElementsAre("Variable:off is not define rule.",
                                           "Variable:customer off is not define rule.",
                                           "Variable:elsewhere is not define rule."));
  EXPECT_EQ(Log()[0].level, 1);
  EXPECT_EQ(Log()[0].function, "KSRuleInstance::ProcessVariable");
  EXPECT_EQ(Log()[0].source, "ksruleinstance");
  EXPECT_EQ(Histories().size(), 1U);
}

TEST_F(RuleInstance, AdoptsTheTypeCodeOnceAndThenHoldsToIt) {
  Define("first", -1, "", 0);
  Define("minus", -1, "", -1);
  Define("fixed", -1, "", 25);
  Prescribe("prescribed", kIntLEQ, R"({"ruleParam":80})");
  EXPECT_THAT(Run(kNow, {Value("first", 1, "5", "", 3), Value("minus", 1, "5", "", 3),
                         Value("minus", 1, "5", "", -1), Value("fixed", 1, "5", "", 25),
                         Value("fixed", 1, "5", "", 26), Value("prescribed", 1, "81", "", 9),
                         Value("prescribed", 1, "81", "", 8)}),
              ElementsAre(true, false, true, true, false, true, false));
  EXPECT_THAT(log_.Messages(),
              Contains("Variable type is changed. the variable type is mismatch to variable value "
                       "type.Var:fixed"));
  EXPECT_EQ(Log()[0].level, 3);
  EXPECT_EQ(results_->GetKSAlertResults().size(), 1U);
}

TEST_F(RuleInstance, LeavesLearnedRulesOfFilteredInterfacesAlone) {
  domain_.files().SetGlobal("KSInterfaceFilter", R"({"value":["loop","Null"]})");
  domain_.manager()->InvalidateKSGlobalSettingCaches();
  Define("load");
  Prescribe("load", kIntLEQ, R"({"ruleParam":80})", "NULL0");
  Prescribe("load", kIntLEQ, R"({"ruleParam":80})", "lo-Loop", kRuleLearned);
  EXPECT_THAT(Run(kNow, {Value("load", 1, "5", "MyLoopback0"), Value("load", 1, "81", "lo-Loop"),
                         // The filter comes before the type check.
                         Value("load", 1, "x", "loop", 77)}),
              ElementsAre(true, true, true));
  EXPECT_EQ(Document(), kNothing);
  EXPECT_THAT(Histories(), IsEmpty());
  Run(kNow,
      {Value("load", 1, "81", "NULL0"), Value("load", 1, "5", ""), Value("load", 1, "5", "ge0")});
  EXPECT_EQ(results_->GetKSAlertResults().size(), 1U);
  EXPECT_EQ(Histories().size(), 2U);

  // A reload is seen by an instance that runs.
  const auto instance = unit_.Start(kNow);
  EXPECT_TRUE(instance->ProcessVariable(Value("load", 1, "81", "lo-Loop")));
  EXPECT_THAT(instance->GetUpdateResultData()->GetKSAlertResults(), IsEmpty());
  domain_.files().SetGlobal("KSInterfaceFilter", R"({"value":[]})");
  domain_.manager()->InvalidateKSGlobalSettingCaches();
  EXPECT_TRUE(instance->ProcessVariable(Value("load", 1, "81", "lo-Loop")));
  EXPECT_EQ(instance->GetUpdateResultData()->GetKSAlertResults().size(), 1U);
}

TEST_F(RuleInstance, TakesADefinitionOverAsItsOwnRule) {
  Define("limit", kIntLEQ, R"({"ruleParam":"80"})");
  Define("table", kTableMd5, "{}", 11);
  // Also without learning: the rule is new on this device. That of a table never counts as new.
  Run(kNow, {Value("limit", 1, "81", "ge0"), Value("table", 5, "digest", "", 11)}, true);
  ASSERT_EQ(results_->GetKSRuleUpdateResults().size(), 1U);
  EXPECT_EQ(results_->GetKSRuleUpdateResults()[0]->ToJsonString(),
            R"({"nRuleId":10,"strRuleAlgParam":"{\"ruleParam\":80}","nVariableSourceType":2,)"
            R"("nVariableType":1,"strVariableParam":"prm","strVariableName":"limit",)"
            R"("strNodeId":"node","strInterfaceName":"ge0","strVariableSource":"src",)"
            R"("strDeviceName":"r1","strInterfacePath":"","strNodePathSchema":"schema",)"
            R"("nOperateType":0})");
  EXPECT_THAT(Rules(), ElementsAre(R"(10 {"ruleParam":80})"));
  ASSERT_FALSE(results_->GetKSAlertResults().empty());
  EXPECT_EQ(results_->GetKSAlertResults()[0]->ToJsonString(),
            R"({"NodeId":"node","NodeSchema":"schema","DeviceName":"r1",)"
            R"("InterfacePath":"path of ge0","InterfaceValue":"ge0","ParserParam":"prm",)"
            R"("SourcePath":"src","VaraibleName":"limit","LiveTime":1700000000,)"
            R"("RuleParam":"{\"_t\":10,\"_p\":\"{\\\"ruleParam\\\":80}\",\"_v\":\"81\"}"})");
  // Now it is no longer new.
  Run(kNow + 60, {Value("limit", 1, "79", "ge0")}, true);
  EXPECT_EQ(Document(), kNothing);
}

TEST_F(RuleInstance, MeasuresTheNameAndNotTheValueForTheAlertText) {
  ASSERT_TRUE(IniReader::SetInt("Keelstone", "StrValueLength", 6, "fix_frontserver.ini"));
  Prescribe("short", kIntLEQ, R"({"ruleParam":0})");
  Prescribe("longer", kIntLEQ, R"({"ruleParam":0})");
  Run(kNow, {Value("short", 1, "1000000000 units"), Value("longer", 1, "1")});
  ASSERT_EQ(results_->GetKSAlertResults().size(), 2U);
  EXPECT_EQ(results_->GetKSAlertResults()[0]->GetAlertInfo(),
            R"({"_t":10,"_p":"{\"ruleParam\":0}","_v":"1000000000 units"})");
  EXPECT_EQ(results_->GetKSAlertResults()[1]->GetAlertInfo(),
            R"({"_t":10,"_p":"{\"ruleParam\":0}"})");
}

TEST_F(RuleInstance, WithoutDynamicCalculationChecksOnly) {
  domain_.files().SetGlobal("KSDynamicRuleStatus", R"("false")");
  domain_.manager()->InvalidateKSGlobalSettingCaches();
  Define("load");
  Prescribe("load", kIntEqual, R"({"ruleParam":5})", "ge0", kRuleLearned);
  Run(kNow, {Value("load", 1, "6"), Value("load", 1, "6", "ge0")});
  EXPECT_EQ(results_->GetKSAlertResults().size(), 1U);
  EXPECT_THAT(Histories(), IsEmpty());
}

TEST_F(RuleInstance, KeepsTheSettingsItBeganWith) {
  const auto stored = [](int dataType, const std::string& value) {
    std::string points;
    for (int i = 30; i > 0; --i) {
      points += (points.empty() ? "" : ",") +
                (R"({"liveTime":)" + std::to_string(kNow - i * 86400)) + R"(,"dataValue":)" +
                value + "}";
    }
    return R"({"dataType":)" + std::to_string(dataType) + R"(,"dataList":[)" + points + "]}";
  };
  for (const char* name : {"number", "text"}) Define(name);
  StoreHistory("number", stored(KSDataInt64, "5"));
  StoreHistory("text", stored(KSDataString, R"("up")"));
  const auto instance = unit_.Start(kNow);
  domain_.Tune("{}");  // under which nothing is learned
  instance->ProcessVariable(Value("number", KSDataInt64, "5"));
  instance->ProcessVariable(Value("text", KSDataString, "up"));
  EXPECT_EQ(instance->GetUpdateResultData()->GetKSRuleUpdateResults().size(), 2U);
  EXPECT_EQ(instance->GetUpdateResultData()->GetKSValueUpdateResults().size(), 2U);
}

TEST_F(RuleInstance, BeginsANewHistoryForARefusedOneWhereNoRuleIsKept) {
  Define("load");
  Define("other");
  Prescribe("ruled", kIntEqual, R"({"ruleParam":5})", "", kRuleLearned);
  const std::string partly =
      R"({"dataType":1,"dataList":[{"liveTime":1,"dataValue":3},{"dataValue":"x"}]})";
  StoreHistory("load", partly);
  StoreHistory("load", R"({"dataType":3,"dataList":[{"liveTime":1,"dataValue":3.5}]})", "ge0");
  const std::string ruled = R"({"dataType":3,"dataList":[]})";
  StoreHistory("ruled", ruled);
  EXPECT_THAT(Run(kNow, {Value("load", 1, "5"), Value("load", 1, "6"), Value("load", 1, "5", "ge0"),
                         Value("ruled", 1, "6"), Value("ruled", 1, "7"), Value("other", 1, "5")}),
              ElementsAre(true, true, true, true, true, true));
  const auto lines = Log();
  ASSERT_EQ(lines.size(), 3U);  // once a variable and run
  EXPECT_THAT(lines[0].message, ::testing::HasSubstr("load"));
  EXPECT_THAT(lines[2].message, ::testing::HasSubstr("ruled"));
  EXPECT_EQ(lines[0].level, 3);
  EXPECT_EQ(Document(), kNothing);
  const auto one = [](int value) {
    return R"({"dataType":1,"dataList":[{"liveTime":1700000000,"dataValue":)" +
           std::to_string(value) + "}]}";
  };
  EXPECT_THAT(Histories(), UnorderedElementsAre(one(6), one(5), one(5), ruled));
  EXPECT_THAT(Rules(), ElementsAre(R"(4 {"ruleParam":5})"));
}

TEST_F(RuleInstance, KnowsBlockPeriodsByTheClock) {
  domain_.files().AddBlock({"r1", "r2"}, 100, 200);
  domain_.files().AddBlock({"r9"}, 0, 1000);
  domain_.manager()->InvalidateKSBlockSettingCaches();
  static std::int64_t now;
  Clock::SetSource([] { return now; });
  const auto instance = unit_.Start(kNow);
  for (const auto& [msec, blocked] :
       {std::pair{99999, false}, std::pair{100000, true}, std::pair{150000, true},
        std::pair{200999, true}, std::pair{201000, false}}) {
    now = msec;
    EXPECT_EQ(instance->IsInBlockTime(), blocked) << msec;
  }
  EXPECT_THAT(log_.Messages(), ElementsAre("Time: 100 is in block time of device: r1.",
                                           "Time: 150 is in block time of device: r1.",
                                           "Time: 200 is in block time of device: r1."));
  EXPECT_EQ(Log()[0].level, 2);
  Clock::SetSource(nullptr);
}

TEST_F(RuleInstance, GivesAVerdictOnlyByARuleThatJudges) {
  const auto judge = [this](int ruleType, const std::string& param, const std::string& history,
                            bool explain = true, int generateType = kRulePrescribed) {
    auto rule = std::make_shared<RuleDefinitionData>(ruleType, generateType, param);
    rule->variableType = 1;
    auto instance = unit_.Start(kNow);
    instance->SetCacheData({{"", {{"v", rule}}}});
    instance->SetHistoryData({{"", {{"v", history}}}});
    instance->SetExplain(explain);
    instance->ProcessVariable(Value("v", KSDataInt64, "1"));
    return instance;
  };
  const auto verdict = [&](const auto&... how) { return judge(how...)->GetLastVerdict(); };
  EXPECT_EQ(verdict(kIntLEQ, R"({"ruleParam":5})", ""), kVerdictFits);
  // No rule, one that cannot judge such a value, and one that takes its first value.
  EXPECT_EQ(verdict(kRuleTypeNone, "", ""), kVerdictNone);
  EXPECT_EQ(verdict(kStrEqual, R"({"ruleParam":"5"})", ""), kVerdictNone);
  EXPECT_EQ(verdict(kIntIncrease, "", ""), kVerdictNone);
  // A counter whose rule is learned with this value, and a history that is refused.
  std::string counted;
  for (int i = 1; i < 13; ++i) {
    counted += R"({"liveTime":)" + std::to_string(1600000000 + i) + R"(,"dataValue":)" +
               std::to_string(i - 20) + (i < 12 ? "}," : "}");
  }
  counted = R"({"dataType":1,"dataList":[)" + counted + "]}";
  EXPECT_EQ(verdict(kRuleTypeNone, "", counted, true, kRuleLearned), kVerdictNone);
  EXPECT_EQ(verdict(kIntLEQ, R"({"ruleParam":0})", "torn", true, kRuleLearned), kVerdictNone);

  const auto alert = judge(kIntLEQ, R"({"ruleParam":0})", "");
  EXPECT_EQ(alert->GetLastVerdict(), kVerdictAlert);
  EXPECT_FALSE(alert->ProcessVariable(Value("undefined", KSDataInt64, "1")));
  EXPECT_EQ(alert->GetLastVerdict(), kVerdictNone);
  EXPECT_EQ(alert->GetExplanations().size(), 1U);
  EXPECT_TRUE(judge(kIntLEQ, R"({"ruleParam":0})", "", false)->GetExplanations().empty());
}

}  // namespace
}  // namespace keelstone::testing
