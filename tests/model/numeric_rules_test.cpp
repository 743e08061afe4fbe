#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "keelstone/algorithm_manager.h"
#include "model/rules/numeric_rules.h"
#include "tests/support/points.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

template <class T>
class NumericRuleKinds : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { domain_ = new TunedDomain; }
  static void TearDownTestSuite() { delete domain_; }

  static std::shared_ptr<IRuleBase> Make(EnumRuleType type) {
    return KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, type, kDataTypeOf<T>);
  }

  static std::string Text(double number) {
    return std::is_same_v<T, std::int64_t>
               ? JsonValue(static_cast<std::int64_t>(number)).toString()
               : JsonValue(static_cast<double>(static_cast<T>(number))).toString();
  }
  static std::string ParamText(double number) { return "{\"ruleParam\":" + Text(number) + "}"; }

  /// A rule built from a stored definition.
  static std::shared_ptr<IRuleBase> Stored(EnumRuleType type, const std::string& param) {
    auto rule = Make(type);
    rule->Init(std::make_shared<RuleDefinitionData>(type, kRulePrescribed, param), domain_->id());
    return rule;
  }

  static TunedDomain* domain_;
};
template <class T>
TunedDomain* NumericRuleKinds<T>::domain_ = nullptr;
TYPED_TEST_SUITE(NumericRuleKinds, NumericTypes);

/// Settings with which every history fits a range of so many deviations.
std::vector<TunedDomain::Changed> RangeOf(int coefficient) {
  return {{"intRange", "dataCountMinLimit", 1},
          {"intRange", "valueStatusCount", 0},
          {"intRange", "stdCoefficient", coefficient}};
}

TYPED_TEST(NumericRuleKinds, ReadStoredParameters) {
  const std::string minusOne = this->ParamText(-1);
  const std::string sevens = "{\"ruleParam\":[" + this->Text(3) + "," + this->Text(7) + "]}";
  const auto range = [&](double upper, double lower) {
    return "{\"maxValue\":" + this->Text(upper) + ",\"minValue\":" + this->Text(lower) + "}";
  };
  struct Case {
    EnumRuleType type;
    const char* text;
    std::string param;
  };
  const std::vector<Case> cases = {
      {kIntEqual, "no JSON", minusOne},
      {kIntEqual, R"( { /* seven */ "ruleParam" : 7.0 } )", this->ParamText(7)},
      {kIntEqual, R"({"ruleParam":"7"})", minusOne},  // refused
      {kIntEqual, R"([7])", minusOne},
      {kIntEqual, R"({"ruleParam":null})", this->ParamText(0)},
      {kIntEnum, R"({"ruleParam":[7,3,7]})", sevens},
      {kIntNoEqual, R"({"ruleParam":[7,3]})", sevens},
      {kIntEnum, R"({"ruleParam":[3,"7"]})", R"({"ruleParam":[]})"},  // refused as a whole
      {kIntRange, R"({"minValue":2,"maxValue":7})", range(7, 2)},
      {kIntRange, R"({"maxValue":7,"minValue":"2"})", range(-1, -1)},
      {kIntRange, "", range(-1, -1)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(this->Stored(c.type, c.text)->GetRuleParam(), c.param) << c.type << " " << c.text;
  }
}

TYPED_TEST(NumericRuleKinds, WithoutHistoryOrFeatureFitNothing) {
  this->domain_->TuneDefaults();
  for (const EnumRuleType type : {kIntEqual, kIntNoEqual, kIntEnum, kIntRange, kIntConstant,
                                  kIntIncrease, kIntLEQ, kIntGEQ}) {
    const auto rule = this->Make(type);
    EXPECT_EQ(rule->GetType(), type);
    EXPECT_FALSE(rule->CheckRule(this->domain_->id()));
    EXPECT_FALSE(rule->UpdateRule());
    EXPECT_FALSE(rule->CheckAlert(PointOf<TypeParam>(1, 2)));
    EXPECT_FALSE(rule->CheckGoldenValue(PointOf<TypeParam>(1, 2)));
    rule->UpdateParam(PointOf<TypeParam>(1, 2));
    EXPECT_EQ(rule->GetRuleParam(), "");
    EXPECT_EQ(rule->GetRuleKSValue(), "");
    EXPECT_EQ(rule->GetRuleKSValueTime(), 0);
    EXPECT_EQ(rule->GetRuleDefineData(), nullptr);
    EXPECT_TRUE(rule->IsDynamic());
    rule->Init(nullptr, this->domain_->id());
    EXPECT_EQ(rule->GetHistoryData(), nullptr);
    EXPECT_FALSE(rule->IsEqual(nullptr));
    EXPECT_FALSE(rule->IsEqual(rule.get()));
  }
}

TEST(TrendRules, TolerateAnyFallWhenRisesDoNotCount) {
  // Both differences are beyond a double; 0 times the rise is no number.
  const auto history = HistoryOf<double>({-1.7e308, 1.7e308, -1.7e308});
  TunedDomain domain;
  const auto rule =
      KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, kIntIncrease, KSDataDouble);
  rule->SetHistoryAndDataFeature(nullptr, history, FeatureOf<double>(history));
  const auto tune = [&](int value) {
    domain.TuneDefaults(
        {{"intIncrease", "dataCountMinLimit", 3}, {"intIncrease", "deltaLZeroValue", value}});
  };
  tune(0);
  EXPECT_TRUE(rule->CheckRule(domain.id()));
  tune(1);
  EXPECT_FALSE(rule->CheckRule(domain.id()));
}

/// Bounds learned from values that a type holds and its neighbours do not.
template <class T>
std::string Bounds(TunedDomain& domain, const std::vector<T>& values, int coefficient) {
  domain.TuneDefaults(RangeOf(coefficient));
  const auto rule =
      KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, kIntRange, kDataTypeOf<T>);
  const auto history = HistoryOf(values);
  rule->SetHistoryAndDataFeature(nullptr, history, FeatureOf<T>(history));
  EXPECT_TRUE(rule->CheckRule(domain.id()));
  rule->UpdateRule();
  return rule->GetRuleParam();
}

TEST(RangeBounds, OfIntegersSaturate) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  TunedDomain domain;
  EXPECT_EQ(Bounds<std::int64_t>(domain, {9000000000000000000, kMost}, 100),
            R"({"maxValue":9223372036854775807,"minValue":0})");
  EXPECT_EQ(Bounds<std::int64_t>(domain, {-9000000000000000000, kLeast}, -1000),
            R"({"maxValue":-9223372036854775808,"minValue":9223372036854775807})");
}

TEST(RangeBounds, WithoutDeviationAreTheExtremes) {
  TunedDomain domain;
  EXPECT_EQ(Bounds<std::int64_t>(domain, {16777219, 16777219}, 3),
            R"({"maxValue":16777219,"minValue":16777219})");
  EXPECT_EQ(Bounds<std::int64_t>(domain, {1700000000000000003, 1700000000000000003}, 3),
            R"({"maxValue":1700000000000000003,"minValue":1700000000000000003})");
  EXPECT_EQ(Bounds<double>(domain, {16777219.125, 16777219.125}, 3),
            R"({"maxValue":16777219.13,"minValue":16777219.13})");
}

TEST(RangeBounds, OfRealsAreRoundedHalfUpToTwoDecimals) {
  TunedDomain domain;
  EXPECT_EQ(Bounds<double>(domain, {1.125, 1.125}, 0), R"({"maxValue":1.13,"minValue":1.13})");
  EXPECT_EQ(Bounds<double>(domain, {1.25, 1.375}, 0), R"({"maxValue":1.31,"minValue":1.31})");
  EXPECT_EQ(Bounds<double>(domain, {-1.125, -1.125}, 0), R"({"maxValue":-1.12,"minValue":0.0})");
  EXPECT_EQ(Bounds<float>(domain, {1.125F, 1.125F}, 0), R"({"maxValue":1.13,"minValue":1.13})");
}

// Whoever adds to the history, before or after the statistics are asked for, and through
// which rule, they stay those of the history that the rule was made of.
TEST(RuleFeature, IsThatOfTheHistoryTheRuleWasMadeOf) {
  const auto definition = std::make_shared<RuleDefinitionData>(kIntEqual, kRuleLearned, "");
  const std::string two =
      R"({"dataType":1,"dataList":[{"liveTime":1,"dataValue":5},{"liveTime":2,"dataValue":5}]})";
  definition->history = two;
  for (const bool isCopied : {false, true}) {
    for (const bool isLent : {false, true}) {
      NumericEqualRule<std::int64_t> rule;
      if (isLent) {
        rule.InitWithHistory(definition, two, "d");
      } else {
        rule.Init(definition, "d");
      }
      NumericEqualRule<std::int64_t> other;
      other = rule;
      NumericEqualRule<std::int64_t> adder(rule);
      (isCopied ? adder : rule).GetHistoryData()->AddData(PointOf<std::int64_t>(3, 7), 30);
      for (const auto* const read : {&rule, &other}) {
        const auto feature =
            std::dynamic_pointer_cast<KSNumercialDataFeature<std::int64_t>>(read->GetDataFeature());
        ASSERT_NE(feature, nullptr);
        EXPECT_EQ(feature->count, 2);
        EXPECT_EQ(feature->lastPoint.value, 5);
        EXPECT_EQ(read->GetHisotryCount(), 3);
      }
    }
  }
}

/// The slots of virtual operations, the destructor's being 0.
template <class Class, class... Operations>
std::vector<std::ptrdiff_t> SlotsOf(Operations Class::*... operations) {
  const auto slot = [](auto operation) {
    std::array<std::ptrdiff_t, 2> words = {};  // an offset and a bit, as the C++ ABI lays it out
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words.data(), &operation, sizeof(words));
    return words[0] / static_cast<std::ptrdiff_t>(sizeof(void*)) - 1;
  };
  return {slot(operations)...};
}

TEST(VirtualOperations, StandInTheirOrderWithOursBehindThem) {
  using History = HistoryDataBase;
  EXPECT_EQ(SlotsOf<History>(&History::FromString, &History::ToString, &History::GetDataCount,
                             &History::AddData, &History::GetDataValue, &History::GetLastTime),
            (std::vector<std::ptrdiff_t>{1, 2, 3, 4, 5, 6}));
  using Rule = IRuleBase;
  EXPECT_EQ(SlotsOf<Rule>(&Rule::Init, &Rule::CheckRule, &Rule::UpdateRule, &Rule::CheckGoldenValue,
                          &Rule::CheckAlert, &Rule::GetType, &Rule::IsDynamic, &Rule::IsEqual,
                          &Rule::UpdateParam, &Rule::setIsLessCountCondition),
            (std::vector<std::ptrdiff_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

}  // namespace
}  // namespace keelstone::testing
