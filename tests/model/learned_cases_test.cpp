#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/algorithm_manager.h"
#include "keelstone/explanation.h"
#include "tests/support/points.h"
#include "tests/support/tuned_domain.h"

// What must be learned of a history under some settings, and what the rule then says of
// values. The cases in tests/model/learned lie on and beside each limit of learning and of
// judging; a plain implementation of the rules, which shared nothing with the library, worked
// them out. Each line of a file has one settings document and its cases.
namespace keelstone::testing {
namespace {

class LearnedCases : public ::testing::TestWithParam<EnumKSDataType> {
 protected:
  EnumKSDataType type() const { return GetParam(); }
  EnumAlgType algorithm() const { return AlgTypeOf(type()); }

  void Check(const JsonValue& expected) {
    const std::shared_ptr<HistoryDataBase> made = MakeHistory(type());
    std::int64_t time = 1000;
    for (const JsonValue& value : expected["values"]) {
      made->AddData(PointOf(type(), ++time, value), 1 << 20);
    }
    const std::string text = made->ToString();
    std::shared_ptr<HistoryDataBase> history;
    std::shared_ptr<KSDataFeature> feature;
    KSRuleAlgMgr::Instance()->GetHistoryAndDataFeatrue(text, type(), history, feature);
    ASSERT_NE(feature, nullptr);
    if (expected.isMember("stats")) {
      const JsonValue seen = Statistics(*feature);
      for (std::size_t i = 0; i < seen.size();
           ++i) {  // the extremes are of the type, all else double
        EXPECT_TRUE(
            SameValues(i == 5 || i == 6 ? type() : KSDataDouble, seen[i], expected["stats"][i]))
            << seen.toString();
      }
    }
    const auto rule =
        KSRuleAlgMgr::Instance()->CalculateRule(std::make_shared<RuleDefinitionData>(), history,
                                                feature, type(), domain_.id(), algorithm());
    ASSERT_EQ(rule ? static_cast<int>(rule->GetType()) : -1, expected["type"].asInt());
    ++learned_[expected["type"].asInt()];
    if (!rule) return;
    ASSERT_EQ(rule->UpdateRule(), expected["updated"].asBool());
    EXPECT_TRUE(SameValues(type(), ValueOfText(rule->GetRuleParam()), expected["param"]))
        << rule->GetRuleParam();
    EXPECT_EQ(rule->GetRuleKSValueTime(), expected["golden"][0].asInt64());
    if (expected["updated"].asBool()) ExpectGolden(*rule, expected["golden"][1]);
    Judge(*rule, expected["probes"], 0);

    const auto stored = rule->GetRuleDefineData();
    EXPECT_EQ(stored->history, text);
    const auto rebuilt =
        KSRuleAlgMgr::Instance()->GetRuleByType(algorithm(), rule->GetType(), type());
    rebuilt->Init(stored, domain_.id());
    EXPECT_TRUE(rebuilt->IsEqual(rule.get()));
    Judge(*rebuilt, expected["probes"], 2);
  }

  /// As a value of JSON, where no finite number is null.
  JsonValue Statistics(const KSDataFeature& feature) const {
    const auto list = [](const auto& f) {
      JsonValue values(JsonType::Array);
      for (const JsonValue& value :
           {JsonValue(f.count), JsonValue(f.zeroDeltaCount), JsonValue(f.negativeDeltaCount),
            JsonValue(f.maxDelta), JsonValue(f.lastNegativeDelta), JsonValue(f.maxValue),
            JsonValue(f.minValue), JsonValue(f.mean), JsonValue(f.std)}) {
        values.append(value);
      }
      return ValueOfText(values.toString());
    };
    if (type() == KSDataInt64) {
      return list(dynamic_cast<const KSNumercialDataFeature<std::int64_t>&>(feature));
    }
    if (type() == KSDataFloat) {
      return list(dynamic_cast<const KSNumercialDataFeature<float>&>(feature));
    }
    return list(dynamic_cast<const KSNumercialDataFeature<double>&>(feature));
  }

  void ExpectGolden(IRuleBase& rule, const JsonValue& value) const {
    const std::string golden = rule.GetRuleKSValue();
    if (type() == KSDataString) {
      EXPECT_EQ(golden, value.asString());
    } else {
      const JsonValue shown = ValueOfText(golden);
      EXPECT_TRUE(SameValues(type(), type() == KSDataTable ? shown["hashCmp"] : shown, value));
    }
  }

  /// Each probe is a value with whether it is an alert and whether it becomes golden, from the
  /// bit `shift` on: first for the rule as learned, then for the stored one.
  void Judge(IRuleBase& rule, const JsonValue& probes, unsigned shift) const {
    std::int64_t time = 5000;
    for (const JsonValue& probe : probes) {
      const auto point = PointOf(type(), ++time, probe[0]);
      const unsigned told = probe[1].asUInt() >> shift;
      EXPECT_EQ(rule.CheckAlert(point), (told & 1U) != 0) << probe[0].toString();
      const bool isGolden = type() != KSDataTable && (told & 2U) != 0;
      if (type() != KSDataTable) {
        EXPECT_EQ(rule.CheckGoldenValue(point), isGolden) << probe[0].toString();
      }
      if (isGolden) {
        EXPECT_EQ(rule.GetRuleKSValueTime(), time);
        ExpectGolden(rule, probe[0]);
      }
    }
  }

  TunedDomain domain_;
  std::map<int, int> learned_;  // how often which type
};

TEST_P(LearnedCases, AreLearnedAndJudged) {
  std::ifstream file(std::string(KEELSTONE_SOURCE_DIR "/tests/model/learned/") +
                     DataTypeName(type()) + ".jsonl");
  std::string line;
  while (std::getline(file, line)) {
    const JsonValue document = ValueOfText(line);
    domain_.Tune(document["settings"].toString());
    for (const JsonValue& expected : document["cases"]) {
      Check(expected);
      if (HasFailure()) FAIL() << expected.toString() << "\n" << document["settings"].toString();
    }
  }
  const std::vector<int> kinds =
      type() == KSDataTable ? std::vector<int>{kTableMd5}
      : type() == KSDataString
          ? std::vector<int>{kStrEqual, kStrEnum}
          : std::vector<int>{kIntEqual, kIntEnum, kIntRange, kIntConstant, kIntIncrease};
  for (const int kind : kinds) EXPECT_GE(learned_[kind], 10) << "type " << kind;
  EXPECT_GE(learned_[-1], 8);
}

INSTANTIATE_TEST_SUITE_P(OfEveryType, LearnedCases,
                         ::testing::Values(KSDataInt64, KSDataFloat, KSDataDouble, KSDataString,
                                           KSDataTable),
                         [](const auto& info) { return std::string(DataTypeName(info.param)); });

}  // namespace
}  // namespace keelstone::testing
