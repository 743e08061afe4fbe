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
  using Values = std::vector<T>;

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

  /// A rule as the learning algorithm asks it, on these values.
  static std::shared_ptr<IRuleBase> Candidate(EnumRuleType type, const Values& values,
                                              bool lessCount = false) {
    auto rule = Make(type);
    const auto history = HistoryOf(values);
    rule->SetHistoryAndDataFeature(std::make_shared<RuleDefinitionData>(), history,
                                   FeatureOf<T>(history));
    rule->setIsLessCountCondition(lessCount);
    return rule;
  }

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

template <class T>
std::vector<T> Repeat(int n, int value) {
  return std::vector<T>(static_cast<std::size_t>(n), T(value));
}

template <class T>
std::vector<T> Join(std::vector<T> first, const std::vector<T>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

template <class T>
std::vector<T> Rising(int n, int from = 1) {
  std::vector<T> values;
  for (int i = 0; i < n; ++i) values.push_back(T(from + i));
  return values;
}

// Worked out by hand; more of them, on and beside each limit, are in learned_cases_test.cpp.
TYPED_TEST(NumericRuleKinds, FitAndLearnWhatTheHandWorkedCasesSay) {
  using T = TypeParam;
  struct Case {
    const char* about;
    EnumRuleType type;
    bool lessCount;
    std::vector<T> values;
    std::vector<double> param;  // empty: does not fit
    std::int64_t time;
  };
  const std::vector<T> states = {1, 2, 1, 2, 1, 2, 1, 2, 1, 3};
  const std::vector<Case> cases = {
      {"short, at the minimum", kIntEqual, true, Repeat<T>(3, 5), {}, 0},
      {"short, above it", kIntEqual, true, Repeat<T>(4, 5), {5}, 1004},
      {"short, no stable run", kIntEqual, true, {1, 1, 2, 2, 1, 1}, {}, 0},
      {"nine of ten unchanged", kIntEqual, true, Join(Repeat<T>(10, 5), {6}), {5}, 1010},
      {"nine of eleven", kIntEqual, true, Join(Repeat<T>(9, 5), {6, 7}), {}, 0},
      {"the newest run", kIntEqual, false, Join(Repeat<T>(8, 1), Repeat<T>(4, 2)), {2}, 1012},
      {"rises", kIntIncrease, false, Rising<T>(10), {10}, 1010},
      {"too short", kIntIncrease, false, Rising<T>(9), {}, 0},
      {"one restart, on the limit", kIntIncrease, false, Join(Rising<T>(8, 20), {17, 18}), {}, 0},
      {"one restart beyond", kIntIncrease, false, Join(Rising<T>(8, 20), {16, 17}), {17}, 1010},
      {"constant is no increase", kIntIncrease, false, Repeat<T>(10, 5), {}, 0},
      {"constant", kIntConstant, false, Repeat<T>(10, 5), {5}, 1010},
      {"rising is not constant", kIntConstant, false, Rising<T>(10), {}, 0},
      {"frequent states", kIntEnum, false, states, {1, 2, 3}, 1010},
      {"four states", kIntEnum, false, Join(states, {4}), {}, 0},
  };
  this->domain_->TuneDefaults();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.about);
    const auto rule = this->Candidate(c.type, c.values, c.lessCount);
    ASSERT_EQ(rule->CheckRule(this->domain_->id()), !c.param.empty());
    if (c.param.empty()) continue;
    EXPECT_TRUE(rule->UpdateRule());
    std::string list;
    for (const double value : c.param) list += (list.empty() ? "" : ",") + this->Text(value);
    if (c.type == kIntEnum) list = "[" + list + "]";
    EXPECT_EQ(rule->GetRuleParam(), "{\"ruleParam\":" + list + "}");
    EXPECT_EQ(rule->GetRuleKSValueTime(), c.time);
  }
}

TYPED_TEST(NumericRuleKinds, RangeTakesBoundsAroundTheMean) {
  using T = TypeParam;
  struct Case {
    int coefficient;
    std::vector<T> values;
    double lower;
    double upper;
  };
  for (const Case& c : std::vector<Case>{{3, {8, 12}, 4, 16},
                                         {4, {80, 90}, 65, 100},  // a percentage
                                         {4, {85, 95}, 70, 110},
                                         {4, {-2, 90}, 0, 228}}) {  // the lower bound's least
    this->domain_->TuneDefaults(RangeOf(c.coefficient));
    const auto rule = this->Candidate(kIntRange, c.values);
    ASSERT_TRUE(rule->CheckRule(this->domain_->id()));
    EXPECT_TRUE(rule->UpdateRule());
    EXPECT_EQ(rule->GetRuleParam(), "{\"maxValue\":" + this->Text(c.upper) +
                                        ",\"minValue\":" + this->Text(c.lower) + "}");
  }
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

TYPED_TEST(NumericRuleKinds, FitNothingWhenTheirSettingsAreRefused) {
  struct Case {
    EnumRuleType type;
    bool still;
    const char* key;
    const char* sound;
    const char* refused;
  };
  const std::vector<Case> cases = {
      {kIntEqual, true, "intEqual", R"({"valueStatusCount":9})",
       R"({"valueStatusCount":9,"condition0":{"deltaEZero":"x"}})"},
      {kIntIncrease, false, "intIncrease", "{}", "[]"},
      {kIntConstant, false, "intConstant", R"({"deltaEZero":-1})",
       R"({"deltaEZero":-1,"deltaLZeroCount":1e20})"},
      {kIntEnum, true, "intEnum", R"({"deltaEZero":1,"valueStatusCount":9})", "7"},
      {kIntRange, false, "intRange", "{}", R"({"stdCoefficient":{}})"},
      {kIntRange, false, "intEnum", "{}", "\"none\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.refused);
    const auto rule =
        this->Candidate(c.type, c.still ? Repeat<TypeParam>(12, 4) : Rising<TypeParam>(12));
    const auto document = [&c](const char* member) {
      return std::string("{\"") + c.key + "\":" + member + "}";
    };
    this->domain_->Tune(document(c.sound));
    EXPECT_TRUE(rule->CheckRule(this->domain_->id()));
    this->domain_->Tune(document(c.refused));
    EXPECT_FALSE(rule->CheckRule(this->domain_->id()));
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
