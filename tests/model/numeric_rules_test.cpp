#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "calc/ksrulealgmgr.h"
#include "tests/support/numeric_kinds.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

template <class T>
class NumericRuleKinds : public ::testing::Test {
 protected:
  using Settings = plain::Settings;
  using Values = std::vector<T>;

  static void SetUpTestSuite() { domain_ = new TunedDomain; }
  static void TearDownTestSuite() { delete domain_; }

  static std::shared_ptr<IRuleBase> Make(EnumRuleType type) {
    return KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, type, Kind<T>::kDataType);
  }

  static std::string Text(double number) {
    return std::is_same_v<T, std::int64_t>
               ? plain::NumberText(static_cast<std::int64_t>(number))
               : plain::NumberText(static_cast<double>(static_cast<T>(number)));
  }
  static std::string ParamText(double number) { return "{\"ruleParam\":" + Text(number) + "}"; }

  /// A rule as the learning algorithm asks it, on these values.
  static std::shared_ptr<IRuleBase> Candidate(EnumRuleType type, const Values& values,
                                              bool lessCount = false) {
    auto rule = Make(type);
    const auto history = HistoryOf(SeenValues(values));
    rule->SetHistoryAndDataFeature(std::make_shared<RuleDefinitionData>(), history,
                                   FeatureOf<T>(history));
    rule->setIsLessCountCondition(lessCount);
    return rule;
  }

  /// A rule built from a stored definition.
  static std::shared_ptr<IRuleBase> Stored(EnumRuleType type, const std::string& param,
                                           Enum_RuleGenerateType origin = kRulePrescribed,
                                           const std::string& history = {}) {
    auto rule = Make(type);
    auto definition = std::make_shared<RuleDefinitionData>(type, origin, param);
    definition->history = history;
    rule->Init(definition, domain_->id());
    return rule;
  }

  static void Tune(const std::function<void(Settings&)>& change) {
    Settings settings;
    if (change) change(settings);
    domain_->Tune(settings.ToJson());
  }

  static TunedDomain* domain_;
};
template <class T>
TunedDomain* NumericRuleKinds<T>::domain_ = nullptr;
TYPED_TEST_SUITE(NumericRuleKinds, NumericTypes);

// Whether a kind fits some values under some settings.
template <class T>
struct FitCase {
  const char* about;
  EnumRuleType type;
  bool lessCount;
  std::function<void(plain::Settings&)> change;
  std::vector<T> values;
  bool fits;
};

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

using Settings = plain::Settings;

template <class T>
std::vector<FitCase<T>> EqualCases() {
  const auto half1 = [](Settings& s) { s.equal.condition1 = 0.5; };
  const auto half2 = [](Settings& s) { s.equal.condition2 = 0.5; };
  const auto runOf2 = [](Settings& s) {
    s.equal.condition1 = 0.1;
    s.equal.countEqualValueLimit = 2;
  };
  const auto runOf3 = [](Settings& s) { s.equal.condition1 = 0.1; };
  const auto one = [](Settings& s) {
    s.equal.condition1 = s.equal.condition2 = 0.1;
    s.equal.valueStatusCount = 1;
  };
  return {
      {"no history", kIntEqual, true, {}, {}, false},
      {"at the minimum", kIntEqual, true, {}, Repeat<T>(3, 5), false},
      {"above the minimum", kIntEqual, true, {}, Repeat<T>(4, 5), true},
      {"short, ratio on the limit", kIntEqual, true, half1, {5, 5, 5, 6, 7}, false},
      {"short, ratio above the limit", kIntEqual, true, half1, {5, 5, 5, 5, 7}, true},
      {"short, too many values", kIntEqual, true, one, {5, 5, 5, 5, 7}, false},
      {"short, no run", kIntEqual, true, runOf3, {1, 1, 2, 2, 1, 1}, false},
      {"short, a shorter run will do", kIntEqual, true, runOf2, {1, 1, 2, 2, 1, 1}, true},
      {"full, ratio on the limit", kIntEqual, true, {}, Join(Repeat<T>(10, 5), {6}), true},
      {"full, ratio below the limit", kIntEqual, true, {}, Join(Repeat<T>(9, 5), {6, 7}), false},
      {"full, many values are no matter", kIntEqual, true, one, Join(Repeat<T>(10, 5), {6}), true},
      {"second test, too short", kIntEqual, false, {}, Repeat<T>(9, 5), false},
      {"second test, long enough", kIntEqual, false, {}, Repeat<T>(10, 5), true},
      {"second test, ratio on the limit",
       kIntEqual,
       false,
       half2,
       {1, 1, 1, 1, 1, 1, 2, 3, 2, 3, 2},
       false},
      {"second test, ratio above the limit",
       kIntEqual,
       false,
       half2,
       {1, 1, 1, 1, 1, 1, 1, 3, 2, 3, 2},
       true},
      {"second test, too many values", kIntEqual, false, one, Join(Repeat<T>(10, 5), {6}), false},
  };
}

template <class T>
std::vector<FitCase<T>> TrendCases() {
  const auto fifth = [](Settings& s) { s.increase.deltaEZero = s.constant.deltaEZero = 0.2; };
  const auto twoFalls = [](Settings& s) { s.increase.deltaLZeroCount = 2; };
  const std::vector<T> twoStill = Join(Rising<T>(8), {8, 8});
  const std::vector<T> threeStill = Join(Rising<T>(7), {7, 7, 7});
  return {
      {"too short", kIntIncrease, false, {}, Rising<T>(9), false},
      {"long enough", kIntIncrease, false, {}, Rising<T>(10), true},
      {"as many unchanged as allowed", kIntIncrease, false, fifth, twoStill, true},
      {"one unchanged too many", kIntIncrease, false, fifth, threeStill, false},
      {"a fall on the limit", kIntIncrease, false, {}, Join(Rising<T>(8, 20), {17, 18}), false},
      {"a fall beyond the limit", kIntIncrease, false, {}, Join(Rising<T>(8, 20), {16, 17}), true},
      {"two falls", kIntIncrease, false, {}, Join(Rising<T>(8, 30), {5, 6, 7, -20, -19}), false},
      {"two falls allowed", kIntIncrease, false, twoFalls,
       Join(Rising<T>(8, 30), {5, 6, 7, -20, -19}), true},
      {"the last fall counts", kIntIncrease, false, twoFalls,
       Join(Rising<T>(8, 30), {5, 6, 7, 5, 6}), false},
      {"constant: too short", kIntConstant, false, {}, Repeat<T>(9, 5), false},
      {"constant: long enough", kIntConstant, false, {}, Repeat<T>(10, 5), true},
      {"constant: on the limit", kIntConstant, false, fifth, twoStill, false},
      {"constant: above the limit", kIntConstant, false, fifth, threeStill, true},
      {"constant: small fall", kIntConstant, false, {}, Join(Repeat<T>(10, 5), {4}), true},
      {"constant: fall no larger than the rises",
       kIntConstant,
       false,
       {},
       Join(Repeat<T>(10, 5), {6, 4}),
       false},
  };
}

template <class T>
std::vector<FitCase<T>> EnumAndRangeCases() {
  const auto third = [](Settings& s) { s.enumeration.deltaEZero = 0.3; };
  // As a double 2.9999999999, in single precision 3.
  const auto nearThird = [](Settings& s) { s.enumeration.deltaEZero = 0.29999999999; };
  const auto above1 = [](Settings& s) { s.enumeration.alertThreshold = 1.0 - 0.9e-6; };
  const auto below1 = [](Settings& s) { s.enumeration.alertThreshold = 1.0 - 1.1e-6; };
  const std::vector<T> threeStill = {1, 1, 1, 1, 2, 1, 2, 1, 2, 3};
  const std::vector<T> fourStill = {1, 1, 1, 1, 1, 2, 1, 2, 1, 3};
  const std::vector<T> sevenValues = {1, 2, 3, 4, 5, 6, 7, 1, 2, 3};
  return {
      {"enum: too short", kIntEnum, false, {}, {1, 2, 1, 2, 1, 2, 1, 2, 1}, false},
      {"enum: long enough", kIntEnum, false, {}, {1, 2, 1, 2, 1, 2, 1, 2, 1, 3}, true},
      {"enum: four values", kIntEnum, false, {}, {1, 2, 1, 2, 1, 2, 1, 2, 4, 3}, false},
      {"enum: unchanged on the limit", kIntEnum, false, third, threeStill, true},
      {"enum: unchanged above the limit", kIntEnum, false, third, fourStill, false},
      {"enum: single precision", kIntEnum, false, nearThird, threeStill, true},
      {"range: six values", kIntRange, false, {}, {1, 2, 3, 4, 5, 6, 1, 2, 3, 4}, false},
      {"range: seven values", kIntRange, false, {}, sevenValues, true},
      {"range: too short", kIntRange, false, {}, Rising<T>(9), false},
      {"range: values must occur more often", kIntRange, false, above1, sevenValues, false},
      {"range: just often enough", kIntRange, false, below1, sevenValues, true},
  };
}

TYPED_TEST(NumericRuleKinds, FitHistoriesUpToTheirThresholds) {
  using T = TypeParam;
  for (const auto& cases : {EqualCases<T>(), TrendCases<T>(), EnumAndRangeCases<T>()}) {
    for (const FitCase<T>& c : cases) {
      SCOPED_TRACE(c.about);
      this->Tune(c.change);
      const auto rule = this->Candidate(c.type, c.values, c.lessCount);
      EXPECT_EQ(rule->CheckRule(this->domain_->id()), c.fits);
      EXPECT_EQ(rule->GetRuleData() != nullptr, c.fits);
    }
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
  this->Tune({});
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

TYPED_TEST(NumericRuleKinds, EqualTakesTheNewestRunOfEqualValues) {
  using T = TypeParam;
  struct Case {
    int run;
    std::vector<T> values;
    double value;
    std::int64_t time;
  };
  const std::vector<Case> cases = {
      {3, {1, 2, 2, 2, 5}, 2, 1004}, {3, {1, 1, 1, 2, 2, 2, 2}, 2, 1007},
      {2, {1, 1, 2, 1, 2}, 1, 1002}, {1, {1, 1, 1, 9}, 9, 1004},
      {0, {1, 1, 1, 9}, 9, 1004},    {-3, {1, 1, 9}, 9, 1003},
      {4, {7, 7, 7, 7}, 7, 1004},    {5, {7, 7, 7, 7}, -1, -1},
      {2, {1, 2, 1, 2}, -1, -1},     {2147483647, {7, 7}, -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "run of " << c.run << " among " << c.values.size());
    this->Tune([&](Settings& s) {
      s.equal = {1, 0, 0, 0, -1, 1000, c.run, 30, 9};  // fits whatever there is
    });
    const auto rule = this->Candidate(kIntEqual, c.values, false);
    ASSERT_TRUE(rule->CheckRule(this->domain_->id()));
    EXPECT_TRUE(rule->UpdateRule());
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(c.value));
    EXPECT_EQ(rule->GetRuleKSValueTime(), c.time);
    EXPECT_EQ(rule->GetRuleKSValue(), this->Text(c.time < 0 ? 0 : c.value));
  }
}

TYPED_TEST(NumericRuleKinds, EnumTakesTheFrequentValues) {
  using T = TypeParam;
  struct Case {
    double ratio;
    std::vector<T> values;
    bool updated;
    std::vector<double> set;
    std::int64_t time;
  };
  const std::vector<Case> cases = {
      {0.1, {1, 1, 1, 2}, true, {1, 2}, 1004},
      {0.5, {1, 1, 1, 2}, true, {1}, 1003},  // 1 / 2 is not above the half
      {1.5, {1, 1, 1, 2}, false, {}, -1},    // nor is 3 / 2
      {1.5 - 2e-6, {1, 1, 1, 2}, true, {1}, 1003},
      {0, {1, 1, 1, 2}, false, {}, -1},  // no ratio asks for none
      {0.9e-5, {1, 1, 1, 2}, false, {}, -1},
      {-1, {3, 1, 2}, true, {1, 2, 3}, 1003},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ratio);
    this->Tune([&](Settings& s) { s.enumeration = {1, 1.0, c.ratio, 1000, 30, 9}; });
    const auto rule = this->Candidate(kIntEnum, c.values);
    ASSERT_TRUE(rule->CheckRule(this->domain_->id()));
    EXPECT_EQ(rule->UpdateRule(), c.updated);
    std::string list;
    for (const double value : c.set) list += (list.empty() ? "" : ",") + this->Text(value);
    EXPECT_EQ(rule->GetRuleParam(), "{\"ruleParam\":[" + list + "]}");
    EXPECT_EQ(rule->GetRuleKSValueTime(), c.time);
  }
}

TYPED_TEST(NumericRuleKinds, RangeTakesBoundsAroundTheMean) {
  using T = TypeParam;
  constexpr bool kWhole = std::is_same_v<T, std::int64_t>;
  struct Case {
    const char* about;
    std::function<void(Settings::Range&)> change;
    std::vector<T> values;
    double lower;
    double upper;
    std::int64_t time;
  };
  const auto exact = [](Settings::Range& s) { s.stdCoefficient = 0; };
  const auto four = [](Settings::Range& s) { s.stdCoefficient = 4; };
  const auto low = [](Settings::Range& s) {
    s.stdCoefficient = 0;
    s.lowerBoundMinValue = -7;
  };
  const std::vector<Case> cases = {
      {"three deviations", {}, {8, 12}, 4, 16, 1002},
      {"low lower bound",
       low,
       {0, 0, 1, 0},
       kWhole ? -7 : 0.25,
       kWhole ? 0 : 0.25,
       kWhole ? 1004 : -1},
      {"percentage", four, {80, 90}, 65, 100, 1002},
      {"at the percentage", four, {85, 95}, 70, 110, 1002},
      {"negative values", four, {-2, 90}, 0, 228, 1002},
      {"none within", exact, {1, 9}, 5, 5, -1},
      {"half up", exact, {2, 3}, kWhole ? 3 : 2.5, kWhole ? 3 : 2.5, kWhole ? 1002 : -1},
      {"negative half up", exact, {-2, -3}, 0, kWhole ? -2 : -2.5, -1},
      {"mean of zero", {}, {-3, 3}, 0, 3, 1002},
      {"all zero", {}, {0, 0}, 0, 0, 1002},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.about);
    this->Tune([&](Settings& s) {
      s.range.dataCountMinLimit = 1;
      s.range.valueStatusCount = 0;
      if (c.change) c.change(s.range);
    });
    const auto rule = this->Candidate(kIntRange, c.values);
    ASSERT_TRUE(rule->CheckRule(this->domain_->id()));
    const bool updated = rule->UpdateRule();
    EXPECT_EQ(rule->GetRuleParam(), "{\"maxValue\":" + this->Text(c.upper) +
                                        ",\"minValue\":" + this->Text(c.lower) + "}");
    EXPECT_EQ(updated, c.time >= 0);
    EXPECT_EQ(rule->GetRuleKSValueTime(), c.time);
  }
}

TYPED_TEST(NumericRuleKinds, TrendsTakeTheNewestValueAndStayMute) {
  using T = TypeParam;
  this->Tune([](Settings& s) { s.constant.deltaEZero = -1; });
  for (const EnumRuleType type : {kIntConstant, kIntIncrease}) {
    const auto rule = this->Candidate(type, Rising<T>(12));
    ASSERT_TRUE(rule->CheckRule(this->domain_->id()));
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(-1));
    EXPECT_TRUE(rule->UpdateRule());
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(12));
    EXPECT_EQ(rule->GetRuleKSValueTime(), 1012);
    EXPECT_FALSE(rule->CheckAlert(PointOf<T>(2000, 1)));
    EXPECT_FALSE(rule->CheckGoldenValue(PointOf<T>(2000, 13)));
    rule->UpdateParam(PointOf<T>(2000, 13));  // learned rules do not follow
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(12));

    // Rebuilt from what it wrote it speaks.
    const auto definition = rule->GetRuleDefineData();
    EXPECT_EQ(definition->ruleType, type);
    const auto rebuilt = this->Make(type);
    rebuilt->Init(definition, this->domain_->id());
    EXPECT_TRUE(rebuilt->IsEqual(rule.get()));
    EXPECT_EQ(rebuilt->GetRuleKSValueTime(), -1);
    EXPECT_TRUE(rebuilt->CheckAlert(PointOf<T>(2000, 1)));
    EXPECT_TRUE(rebuilt->CheckGoldenValue(PointOf<T>(2000, 13)));
    EXPECT_EQ(rebuilt->GetRuleKSValueTime(), 2000);
  }
}

TYPED_TEST(NumericRuleKinds, JudgeValues) {
  using T = TypeParam;
  struct Case {
    EnumRuleType type;
    const char* param;
    std::vector<int> alerts;
    std::vector<int> golden;
    std::vector<int> neither;
  };
  const std::vector<Case> cases = {
      {kIntEqual, R"({"ruleParam":5})", {4, 6}, {5}, {}},
      {kIntNoEqual, R"({"ruleParam":[5,7]})", {5, 7}, {4, 6}, {}},
      {kIntEnum, R"({"ruleParam":[5,7]})", {4, 6}, {5, 7}, {}},
      {kIntRange, R"({"maxValue":9,"minValue":5})", {4, 10}, {5, 7, 9}, {}},
      {kIntRange, R"({"maxValue":5,"minValue":9})", {4, 5, 7, 9, 10}, {}, {}},
      {kIntConstant, R"({"ruleParam":5})", {4, 6}, {4, 6}, {}},
      {kIntConstant, R"({})", {}, {}, {-1, 0, 4}},
      {kIntIncrease, R"({"ruleParam":5})", {4, 5}, {6}, {}},
      {kIntIncrease, "", {}, {}, {-1, 0, 4}},
      {kIntLEQ, R"({"ruleParam":5})", {6}, {4, 5}, {}},
      {kIntGEQ, R"({"ruleParam":5})", {4}, {5, 6}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.type << " " << c.param);
    const auto judge = [&](int value, bool alert, bool golden) {
      const auto rule = this->Stored(c.type, c.param);
      EXPECT_EQ(rule->CheckAlert(PointOf<T>(50, T(value))), alert) << value;
      EXPECT_EQ(rule->CheckGoldenValue(PointOf<T>(50, T(value))), golden) << value;
      EXPECT_EQ(rule->GetRuleKSValueTime(), golden ? 50 : -1) << value;
      EXPECT_EQ(rule->GetRuleKSValue(), this->Text(golden ? value : 0)) << value;
    };
    const auto has = [](const std::vector<int>& list, int value) {
      return std::find(list.begin(), list.end(), value) != list.end();
    };
    for (const int value : c.alerts) judge(value, true, has(c.golden, value));
    for (const int value : c.golden) judge(value, has(c.alerts, value), true);
    for (const int value : c.neither) judge(value, false, false);

    using Other = std::conditional_t<std::is_same_v<T, double>, float, double>;
    const auto rule = this->Stored(c.type, c.param);
    EXPECT_FALSE(rule->CheckAlert(PointOf<Other>(50, Other(4))));
    EXPECT_FALSE(rule->CheckGoldenValue(PointOf<Other>(50, Other(6))));
    EXPECT_FALSE(rule->CheckAlert(nullptr));
  }
}

TYPED_TEST(NumericRuleKinds, ReadStoredParameters) {
  const std::string minusOne = this->ParamText(-1);
  const std::string zero = this->ParamText(0);
  const std::string seven = this->ParamText(7);
  const std::string none = R"({"ruleParam":[]})";
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
      {kIntEqual, "", minusOne},
      {kIntEqual, "no JSON", minusOne},
      {kIntEqual, R"({"ruleParam":7})", seven},
      {kIntEqual, R"( { /* seven */ "ruleParam" : 7.0 } )", seven},
      {kIntEqual, R"({"ruleParam":5,"ruleParam":7})", seven},
      {kIntEqual, R"({"ruleParam":"7"})", minusOne},  // refused
      {kIntEqual, R"({"ruleParam":[7]})", minusOne},
      {kIntEqual, R"({"ruleParam":{}})", minusOne},
      {kIntEqual, R"([7])", minusOne},
      {kIntEqual, R"(7)", minusOne},
      {kIntEqual, R"({})", zero},
      {kIntEqual, R"(null)", zero},
      {kIntEqual, R"({"ruleParam":null})", zero},
      {kIntLEQ, R"({"ruleParam":7})", seven},
      {kIntGEQ, R"({"ruleParam":false})", zero},
      {kIntConstant, R"({"ruleParam":"7"})", minusOne},
      {kIntEnum, R"({"ruleParam":[7,3,7]})", sevens},
      {kIntNoEqual, R"({"ruleParam":[7,3]})", sevens},
      {kIntEnum, R"({"ruleParam":[3,"7"]})", none},  // refused as a whole
      {kIntEnum, R"({"ruleParam":[]})", none},
      {kIntEnum, R"({})", none},
      {kIntEnum, R"(null)", none},
      {kIntRange, R"({"minValue":2,"maxValue":7})", range(7, 2)},
      {kIntRange, R"({"maxValue":7})", range(7, 0)},
      {kIntRange, R"({"maxValue":7,"minValue":"2"})", range(-1, -1)},
      {kIntRange, R"({"maxValue":[],"minValue":2})", range(-1, -1)},
      {kIntRange, R"([])", range(-1, -1)},
      {kIntRange, "", range(-1, -1)},
  };
  for (const Case& c : cases) {
    const auto rule = this->Stored(c.type, c.text);
    EXPECT_EQ(rule->GetRuleParam(), c.param) << c.type << " " << c.text;
    EXPECT_FALSE(rule->IsDynamic());
  }
}

TYPED_TEST(NumericRuleKinds, StoredWithARefusedHistoryHaveNoRuleData) {
  const std::string type = std::to_string(Kind<TypeParam>::kDataType);
  const std::string partly =
      R"({"dataType":)" + type + R"(,"dataList":[{"liveTime":1,"dataValue":3},5]})";
  for (const EnumRuleType kind : {kIntEqual, kIntNoEqual, kIntEnum, kIntRange, kIntConstant,
                                  kIntIncrease, kIntLEQ, kIntGEQ}) {
    const auto rule = this->Stored(kind, R"({"ruleParam":5})", kRulePrescribed, partly);
    ASSERT_NE(rule->GetHistoryData(), nullptr);
    EXPECT_EQ(rule->GetHisotryCount(), 1);
    EXPECT_EQ(rule->GetRuleData(), nullptr);
    EXPECT_EQ(rule->GetRuleDefineData(), nullptr);
    EXPECT_FALSE(rule->CheckAlert(PointOf<TypeParam>(1, 2)));
  }
}

TYPED_TEST(NumericRuleKinds, WriteThemselvesIntoTheirDefinition) {
  using T = TypeParam;
  const std::string history = plain::HistoryText(SeenValues<T>({4, 5}));
  const auto rule = this->Stored(kIntLEQ, R"({"ruleParam":"refused"})", kRuleLearned, history);
  rule->GetHistoryData()->AddData(PointOf<T>(1003, 6), 2);
  const auto definition = rule->GetRuleDefineData();
  ASSERT_NE(definition, nullptr);
  EXPECT_EQ(definition->ruleParam, this->ParamText(-1));
  EXPECT_EQ(definition->ruleType, kIntLEQ);
  EXPECT_EQ(definition->history, plain::HistoryText<T>({{1002, 5}, {1003, 6}}));
  EXPECT_TRUE(rule->IsDynamic());
  EXPECT_EQ(rule->GetRuleDefineData(), definition);
}

TYPED_TEST(NumericRuleKinds, AreEqualByTypeAndParameter) {
  const auto five = this->Stored(kIntEqual, R"({"ruleParam":5})");
  const auto other = this->Stored(kIntEqual, R"({"ruleParam":5})", kRuleLearned,
                                  plain::HistoryText(SeenValues<TypeParam>({1, 2})));
  EXPECT_TRUE(other->CheckGoldenValue(PointOf<TypeParam>(9, 5)));
  EXPECT_TRUE(five->IsEqual(other.get()));
  EXPECT_FALSE(five->IsEqual(this->Stored(kIntEqual, R"({"ruleParam":6})").get()));
  EXPECT_FALSE(five->IsEqual(this->Stored(kIntLEQ, R"({"ruleParam":5})").get()));
  EXPECT_FALSE(five->IsEqual(this->Make(kIntEqual).get()));
}

TYPED_TEST(NumericRuleKinds, PrescribedTrendsFollowTheValue) {
  for (const EnumRuleType type : {kIntConstant, kIntIncrease}) {
    const auto rule = this->Stored(type, R"({"ruleParam":5})");
    rule->UpdateParam(PointOf<TypeParam>(1, 8));
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(8));
    rule->UpdateParam(nullptr);
    EXPECT_EQ(rule->GetRuleParam(), this->ParamText(8));
  }
  const auto limit = this->Stored(kIntLEQ, R"({"ruleParam":5})");
  limit->UpdateParam(PointOf<TypeParam>(1, 8));
  EXPECT_EQ(limit->GetRuleParam(), this->ParamText(5));
}

TEST(TrendRules, TolerateAnyFallWhenRisesDoNotCount) {
  // Both differences are beyond a double; 0 times the rise is no number.
  const auto history = HistoryOf(SeenValues<double>({-1.7e308, 1.7e308, -1.7e308}));
  TunedDomain domain;
  Settings settings;
  settings.increase = {3, 0.2, 1, 0, 1000, 30};
  const auto rule =
      KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, kIntIncrease, KSDataDouble);
  rule->SetHistoryAndDataFeature(nullptr, history, FeatureOf<double>(history));
  domain.Tune(settings.ToJson());
  EXPECT_TRUE(rule->CheckRule(domain.id()));
  settings.increase.deltaLZeroValue = 1;
  domain.Tune(settings.ToJson());
  EXPECT_FALSE(rule->CheckRule(domain.id()));
}

/// Bounds learned from values that a type holds and its neighbours do not.
template <class T>
std::string Bounds(TunedDomain& domain, const std::vector<T>& values, int coefficient) {
  Settings settings;
  settings.range = {1, 0, 0, 100, 95, coefficient, 1000, 30};
  domain.Tune(settings.ToJson());
  const auto rule =
      KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, kIntRange, Kind<T>::kDataType);
  const auto history = HistoryOf(SeenValues(values));
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
  // In single precision, with the digits of the float that comes out.
  EXPECT_EQ(Bounds<float>(domain, {1.125F, 1.125F}, 0),
            R"({"maxValue":1.1299999952316284,"minValue":1.1299999952316284})");
}

TEST(RangeBounds, OfVeryLargeRealsStayNumbers) {
  TunedDomain domain;
  EXPECT_EQ(Bounds<float>(domain, {3e38F, 1e38F}, 3).find("null"), std::string::npos);
  EXPECT_EQ(Bounds<double>(domain, {1.5e308, 1.5e308, -1.7e308}, 3),
            R"({"maxValue":1.5e+308,"minValue":0.0})");
}

}  // namespace
}  // namespace keelstone::testing
