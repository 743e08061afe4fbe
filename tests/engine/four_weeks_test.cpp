#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/text/strings.h"
#include "keelstone/clock.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/points.h"
#include "tests/support/tuned_domain.h"

// One device over four weeks of simulated time: numbers of each type that are steady, count,
// repeat or vary, texts and tables, and an incident in the middle; learned rules and prescribed
// ones. What is told of each run and what is stored in the end stands in four_weeks.json, as
// a plain implementation of the rules, which shared nothing with the library, worked it out.
namespace keelstone::testing {
namespace {

constexpr std::int32_t kStart = 1700000000;
constexpr std::int32_t kStep = 2 * 3600;
constexpr int kRuns = 336;
constexpr int kRunsPerWeek = 84;

class FourWeeks : public ::testing::TestWithParam<std::size_t> {
 protected:
  FourWeeks()
      : story_(ValueOfText(
            FileText(KEELSTONE_SOURCE_DIR "/tests/engine/four_weeks.json"))[GetParam()]) {
    domain_.Tune(story_["settings"].toString());
    domain_.files().SetGlobal("KSInterfaceFilter", R"({"value":["null"]})");
    domain_.files().AddBlock({"r1"}, kStart + 100 * kStep, kStart + 103 * kStep);
    for (const JsonValue& variable : story_["variables"]) Define(variable);
    domain_.manager()->InvalidateKSGlobalSettingCaches();
    domain_.manager()->InvalidateKSBlockSettingCaches();
    domain_.manager()->InvalidateKSVariableRuleCaches();
  }
  ~FourWeeks() override { Clock::SetSource(nullptr); }

  void Define(const JsonValue& variable) {
    const std::string name = variable["name"].asString();
    const int typeCode = variable["typeCode"].asInt();
    const JsonValue& rule = variable["prescribed"];
    if (rule.isNull()) {
      domain_.files().AddVariableRule({"src", name, -1, "", typeCode});
      return;
    }
    auto definition =
        std::make_shared<RuleDefinitionData>(rule[0].asInt(), kRulePrescribed, rule[1].toString());
    definition->variableType = typeCode;
    const ObjectDefine object = Unit{domain_.id()}.Object(variable["interface"].asString());
    domain_.manager()->SetRuleAlgParam({{name, definition}}, &object, "src", "prm",
                                       kVariableSourceParser);
  }

  static VarInfo ValueOf(const JsonValue& variable, int run) {
    const JsonValue& state =
        variable["states"][variable["values"][static_cast<std::size_t>(run)].asUInt64()];
    VarInfo value = Value(variable["name"].asString(), variable["dataType"].asInt(),
                          state.isArray() ? state[0].asString() : state.asString(),
                          variable["interface"].asString(), variable["typeCode"].asInt());
    if (!state.isArray()) return value;
    value.value = state[1];
    for (const JsonValue& key : state[2]) value.tableKeys.insert(key.asString());
    value.tableFlag = state[3].asInt();
    return value;
  }

  /// What the results say of the last value, beyond what they said before: `told` of the file.
  static void Tell(const KSRuleUpdateResultData& results, const VarInfo& value, int run,
                   std::size_t (&seen)[3], JsonValue& told) {
    const auto add = [&](const char* what, const std::vector<JsonValue>& rest) {
      JsonValue line(JsonType::Array);
      line.append(what);
      line.append(run);
      for (const JsonValue& one : rest) line.append(one);
      told.append(line);
    };
    for (; seen[0] < results.GetKSAlertResults().size(); ++seen[0]) {
      const KSAlertData& alert = *results.GetKSAlertResults()[seen[0]];
      const JsonValue info = ValueOfText(alert.GetAlertInfo());
      EXPECT_EQ(alert.GetLiveTime(), kStart + run * kStep);
      EXPECT_EQ(alert.GetVaraibleName() + info["_v"].asString(),
                value.variableName + value.valueText);
      add("alert", {info["_t"], ValueOfText(info["_p"].asString())});
    }
    for (; seen[1] < results.GetKSValueUpdateResults().size(); ++seen[1]) {
      const KSValueUpdateResultItem& item = *results.GetKSValueUpdateResults()[seen[1]];
      JsonValue golden = item.strJsonValue;
      if (value.dataType != KSDataString) golden = ValueOfText(item.strJsonValue);
      if (value.dataType == KSDataTable) golden = golden["hashCmp"];
      const auto of = static_cast<int>((item.nValueTime - kStart) / kStep);
      of == run ? add("golden", {}) : add("golden", {of, golden});
      EXPECT_EQ(item.nVariableType, value.variableType);
    }
    for (; seen[2] < results.GetKSRuleUpdateResults().size(); ++seen[2]) {
      const KSRuleUpdateResultItem& item = *results.GetKSRuleUpdateResults()[seen[2]];
      add("rule", {item.nRuleId, ValueOfText(item.strRuleAlgParam)});
    }
  }

  static void CompareStored(const DomainFiles& files, const JsonValue& variable) {
    const auto type = static_cast<EnumKSDataType>(variable["dataType"].asInt());
    const std::string where = " where variableName = '" + variable["name"].asString() +
                              "' and interfaceValue = '" + variable["interface"].asString() + "'";
    const auto rules =
        files.Select(kDbObjectRule,
                     "select '[' || ruleTypeId || ',' || ruleAlgParameter || ']' from "
                     "KSObjectRule" +
                         where);
    ASSERT_EQ(rules.size(), variable["stored"].isNull() ? 0U : 1U);
    if (!rules.empty()) {
      EXPECT_TRUE(SameValues(type, ValueOfText(rules[0]), variable["stored"])) << rules[0];
    }
    const auto histories =
        files.Select(kDbObjectHistory, "select HistoryData from KSObjectHistory" + where);
    ASSERT_EQ(histories.size(), variable["kept"].empty() ? 0U : 1U);
    if (histories.empty()) return;
    const std::shared_ptr<HistoryDataBase> expected = MakeHistory(type);
    for (const JsonValue& run : variable["kept"]) {
      JsonValue value = ValueOf(variable, run.asInt()).valueText;
      if (type == KSDataString) value = Trim(value.asString(), " ");
      if (type < KSDataString) value = ValueOfText(value.asString());
      expected->AddData(PointOf(type, kStart + run.asInt64() * kStep, value), 1000);
    }
    const JsonValue points = ValueOfText(histories[0])["dataList"];
    const JsonValue wanted = ValueOfText(expected->ToString())["dataList"];
    ASSERT_EQ(points.size(), wanted.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      EXPECT_EQ(points[i]["liveTime"], wanted[i]["liveTime"]);
      EXPECT_EQ(points[i]["dataValue"], wanted[i]["dataValue"]);
    }
  }

  LogCapture log_;
  TunedDomain domain_;
  const JsonValue story_;
};

TEST_P(FourWeeks, OfOneDevice) {
  const JsonValue& variables = story_["variables"];
  auto files = std::make_unique<DomainFiles>(domain_.files());
  static std::int64_t now;
  Clock::SetSource([] { return now * 1000; });
  std::vector<JsonValue> told(variables.size(), JsonValue(JsonType::Array));
  for (int run = 0; run < kRuns; ++run) {
    if (run % kRunsPerWeek == kRunsPerWeek - 1) {  // what a process that starts anew finds
      files = std::make_unique<DomainFiles>(files->CopyAs(domain_.id() + std::to_string(run)));
    }
    now = kStart + run * kStep;
    const Unit unit{files->domainId()};
    const auto instance = unit.Start(static_cast<std::int32_t>(now), run % 50 == 49);
    EXPECT_EQ(instance->IsInBlockTime(), run >= 100 && run <= 103);
    if (instance->IsInBlockTime()) instance->SetOnlyUpdateKSValue();
    const auto results = instance->GetUpdateResultData();
    std::size_t seen[3] = {};
    for (std::size_t i = 0; i < variables.size(); ++i) {
      const VarInfo value = ValueOf(variables[i], run);
      ASSERT_TRUE(instance->ProcessVariable(value)) << value.variableName << run;
      Tell(*results, value, run, seen, told[i]);
    }
    // Learned rules leave filtered interfaces alone.
    VarInfo filtered = ValueOf(variables[0], run);
    filtered.interfaceValue = "Null0";
    ASSERT_TRUE(instance->ProcessVariable(filtered));
    unit.Finish(*instance);
  }
  for (std::size_t i = 0; i < variables.size(); ++i) {
    SCOPED_TRACE(variables[i]["name"].asString());
    const auto type = static_cast<EnumKSDataType>(variables[i]["dataType"].asInt());
    const JsonValue& expected = variables[i]["told"];
    EXPECT_EQ(told[i].size(), expected.size());
    for (std::size_t n = 0; n < std::min(told[i].size(), expected.size()); ++n) {
      ASSERT_TRUE(SameValues(type, told[i][n], expected[n]))
          << told[i][n].toString() << " in the place of " << expected[n].toString();
    }
    CompareStored(*files, variables[i]);
  }
  EXPECT_TRUE(
      files
          ->Select(kDbObjectHistory, "select 1 from KSObjectHistory where interfaceValue = 'Null0'")
          .empty());
  for (const std::string& message : log_.Messages()) {
    EXPECT_EQ(message.find("ailed"), std::string::npos) << message;
  }
}

INSTANTIATE_TEST_SUITE_P(Int64FloatDoubleAndTexts, FourWeeks,
                         ::testing::Range(std::size_t{0}, std::size_t{4}));

}  // namespace
}  // namespace keelstone::testing
