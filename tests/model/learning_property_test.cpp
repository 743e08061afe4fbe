#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "calc/ksrulealgmgr.h"
#include "tests/support/numeric_kinds.h"
#include "tests/support/tuned_domain.h"

// Learning and judging against the second reading of the rules, over generated settings
// and histories that crowd around every threshold.
namespace keelstone::testing {
namespace {

constexpr unsigned kFirstSeed = 7001;
constexpr unsigned kDocuments = 400;
constexpr int kHistoriesPerDocument = 40;

class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}

  int Below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  int Between(int least, int most) { return least + Below(most - least + 1); }
  bool OneIn(int n) { return Below(n) == 0; }
  std::int64_t Raw() {
    return static_cast<std::int64_t>(std::uint64_t{random_()} << 32U | random_());
  }
  template <class Item>
  const Item& Pick(const std::vector<Item>& items) {
    return items[static_cast<std::size_t>(Below(static_cast<int>(items.size())))];
  }

 private:
  std::mt19937 random_;
};

/// A step that single values differ by: around the tolerance for reals.
template <class T>
T Step(Dice& dice) {
  if constexpr (std::is_same_v<T, std::int64_t>) {
    return dice.OneIn(4) ? dice.Between(1, 50) : 1;
  } else {
    const T tolerance = T(1e-5);
    switch (dice.Below(6)) {
      case 0:
        return tolerance;
      case 1:
        return std::nextafter(tolerance, T(1));
      case 2:
        return std::nextafter(tolerance, T(0));
      case 3:
        return T(0.1);
      default:
        return T(1);
    }
  }
}

template <class T>
T Origin(Dice& dice) {
  const std::int64_t raw = dice.Raw();
  switch (dice.Below(9)) {
    case 0:
      return T(0);
    case 1:
      return T(dice.Between(-3, 3));
    case 2:
      return T(dice.Between(80, 110));
    case 3:
      return T(16777217 + dice.Between(-4, 4));
    case 4:
      return static_cast<T>(1700000000000 + raw % 1000);
    case 5:
      return static_cast<T>(raw);
    case 6:
      if constexpr (!std::is_same_v<T, std::int64_t>) return static_cast<T>(raw % 1000) * T(0.01);
      return raw > 0 ? std::numeric_limits<T>::max() - T(raw % 9)
                     : std::numeric_limits<T>::min() - T(raw % 9);
    case 7:
      if constexpr (std::is_same_v<T, float>) return static_cast<T>(raw) * 1e19F;
      if constexpr (std::is_same_v<T, double>) return static_cast<T>(raw) * 1e289;
      return T(raw % 100000);
    default:
      return T(dice.Between(0, 1000));
  }
}

template <class T>
T Plus(T a, T b) {
  if constexpr (std::is_same_v<T, std::int64_t>) {
    return static_cast<T>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
  } else {
    const T sum = a + b;
    return std::isfinite(sum) ? sum : a;
  }
}

template <class T>
std::vector<T> Values(Dice& dice, int n) {
  std::vector<T> values;
  const T origin = Origin<T>(dice);
  const T step = Step<T>(dice);
  const int shape = dice.Below(7);
  const int states = dice.Between(1, 9);
  T value = origin;
  for (int i = 0; i < n; ++i) {
    switch (shape) {
      case 0:  // hardly ever changes
        if (dice.OneIn(8)) value = Plus(value, dice.OneIn(2) ? step : T(-step));
        break;
      case 1:  // rises
        if (!dice.OneIn(5)) value = Plus(value, step);
        break;
      case 2:  // rises and starts anew
        value =
            dice.OneIn(10) ? Plus(origin, T(-step * T(dice.Between(8, 12)))) : Plus(value, step);
        break;
      case 3:  // one of some
        value = Plus(origin, T(step * T(dice.Below(states))));
        break;
      case 4:  // runs of one of some
        if (dice.OneIn(3)) value = Plus(origin, T(step * T(dice.Below(states))));
        break;
      case 5:  // about a mean
        value = Plus(origin, T(dice.Between(-20, 20)));
        break;
      default:  // anything
        value = Origin<T>(dice);
    }
    values.push_back(value);
  }
  return values;
}

/// A ratio near or at what the history shows, or any.
double Ratio(Dice& dice, int unchanged, int of) {
  const double shown = of > 0 ? static_cast<double>(unchanged) / of : 0.5;
  switch (dice.Below(6)) {
    case 0:
      return shown;
    case 1:
      return std::nextafter(shown, 2.0);
    case 2:
      return std::nextafter(shown, -1.0);
    case 3:
      return dice.Below(12) / 10.0;
    case 4:
      return static_cast<double>(static_cast<float>(dice.Below(10)) * 0.1F);
    default:
      return shown + dice.Between(-2, 2) * 1e-8;
  }
}

/// Settings whose limits lie at what this history shows.
template <class T>
plain::Settings SettingsAround(Dice& dice, const std::vector<plain::Seen<T>>& history) {
  const plain::Statistics<T> shown = plain::Observe(history);
  const int n = shown.count;
  const int z = shown.zeroDeltas;
  const int distinct = static_cast<int>(shown.occurrences.size());
  const auto near = [&](int number) { return number + dice.Between(-1, 1); };
  plain::Settings s;
  if (dice.OneIn(10)) return s;
  s.equal.dataCountThreshold = dice.OneIn(2) ? near(n) : n + dice.Between(2, 20);
  s.equal.dataCountMinLimit = dice.OneIn(2) ? near(n) : dice.Below(5);
  s.equal.condition0 = Ratio(dice, z, n - 1);
  s.equal.condition1 = Ratio(dice, z, n - 1);
  s.equal.condition2 = Ratio(dice, z, n - 1);
  s.equal.countEqualValueLimit = dice.Between(-1, 5);
  s.equal.valueStatusCount = near(distinct);
  s.enumeration.dataCountMinLimit = near(n);
  s.enumeration.deltaEZero = Ratio(dice, z, n);
  s.enumeration.alertThreshold =
      dice.Pick<double>({0, 1e-5, 0.9e-5, 0.1F, 0.5, 1, 1.5, 2, 1 - 1e-6, 1 - 1.1e-6, 3, -1});
  s.enumeration.valueStatusCount = near(distinct);
  s.range.dataCountMinLimit = near(n);
  s.range.valueStatusCount = dice.OneIn(2) ? near(distinct) : 0;
  s.range.lowerBoundMinValue = dice.Between(-5, 5);
  s.range.upperBoundMaxValue = dice.Pick<int>({100, 50, 0, 90});
  s.range.percentageMaxValue = dice.Pick<int>({95, 100, 3, 2000000000});
  s.range.stdCoefficient = dice.Pick<int>({3, 0, 1, 2, 10, -1, 2147483647});
  for (plain::Settings::Trend* trend : {&s.constant, &s.increase}) {
    trend->dataCountMinLimit = near(n);
    trend->deltaEZero = Ratio(dice, z, n);
    trend->deltaLZeroCount = dice.OneIn(2) ? near(shown.negativeDeltas) : dice.Below(3);
    trend->deltaLZeroValue = dice.Pick<int>({10, 1, 0, 9, 11, -1});
  }
  return s;
}

bool SameBits(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

/// One domain, and what is compared in it.
template <class T>
class LearningLikeTheSecondReading : public ::testing::Test {
 protected:
  using Seen = plain::Seen<T>;
  using History = std::vector<Seen>;

  void Compare(const History& history, const plain::Settings& settings, Dice& dice) {
    const auto definition = std::make_shared<RuleDefinitionData>();
    const std::string text = plain::HistoryText(history);
    std::shared_ptr<HistoryDataBase> points;
    std::shared_ptr<KSDataFeature> feature;
    if (history.empty()) {
      points = std::make_shared<typename Kind<T>::History>();
      feature = FeatureOf<T>(points);
    } else {
      KSRuleAlgMgr::Instance()->GetHistoryAndDataFeatrue(text, Kind<T>::kDataType, points, feature);
    }
    ASSERT_NE(feature, nullptr);
    ASSERT_EQ(points->ToString(), text);
    CompareStatistics(plain::Observe(history), dynamic_cast<KSNumercialDataFeature<T>&>(*feature));

    const auto rule = KSRuleAlgMgr::Instance()->CalculateRule(
        definition, points, feature, Kind<T>::kDataType, domain_.id(), KSAlgNumerical);
    auto expected = plain::Learn(history, settings);
    ASSERT_EQ(rule ? static_cast<int>(rule->GetType()) : -1, expected ? expected->rule.type : -1);
    ++learned_[expected ? expected->rule.type : 0];
    if (!rule) return;
    ASSERT_EQ(rule->UpdateRule(), expected->updated);
    ASSERT_EQ(rule->GetRuleParam(), expected->rule.ParamText());
    ASSERT_EQ(rule->GetRuleKSValue(), expected->rule.GoldenText());
    ASSERT_EQ(rule->GetRuleKSValueTime(), expected->rule.golden.time);
    ComparePoints(*rule, expected->rule, dice);

    const auto stored = rule->GetRuleDefineData();
    ASSERT_EQ(stored->history, text);
    const auto rebuilt = KSRuleAlgMgr::Instance()->GetRuleByType(KSAlgNumerical, rule->GetType(),
                                                                 Kind<T>::kDataType);
    rebuilt->Init(stored, domain_.id());
    ASSERT_TRUE(rebuilt->IsEqual(rule.get()));
    expected->rule.hasParam = true;
    expected->rule.golden = Seen();
    ComparePoints(*rebuilt, expected->rule, dice);
  }

  static void CompareStatistics(const plain::Statistics<T>& expected,
                                const KSNumercialDataFeature<T>& feature) {
    ASSERT_EQ(feature.count, expected.count);
    ASSERT_EQ(feature.zeroDeltaCount, expected.zeroDeltas);
    ASSERT_EQ(feature.negativeDeltaCount, expected.negativeDeltas);
    ASSERT_EQ(feature.maxDelta, expected.maxDelta);
    ASSERT_EQ(feature.lastNegativeDelta, expected.lastNegativeDelta);
    ASSERT_EQ(feature.maxValue, expected.max);
    ASSERT_EQ(feature.minValue, expected.min);
    ASSERT_PRED2(SameBits, feature.mean, expected.mean);
    ASSERT_PRED2(SameBits, feature.std, expected.std);
    ASSERT_TRUE(std::equal(
        feature.valueCounts.begin(), feature.valueCounts.end(), expected.occurrences.begin(),
        expected.occurrences.end(),
        [](const auto& a, const auto& b) { return a.first == b.first && a.second == b.second; }));
  }

  /// The rule's parameters, what lies beside them, and any value.
  static std::vector<T> Probes(const plain::Rule<T>& rule, Dice& dice) {
    std::vector<T> corners = {rule.value, rule.lower, rule.upper, Origin<T>(dice)};
    corners.insert(corners.end(), rule.values.begin(), rule.values.end());
    std::vector<T> probes;
    for (const T corner : corners) {
      probes.push_back(corner);
      if constexpr (std::is_same_v<T, std::int64_t>) {
        probes.push_back(Plus<T>(corner, 1));
        probes.push_back(Plus<T>(corner, -1));
      } else {
        probes.push_back(std::nextafter(corner, std::numeric_limits<T>::max()));
        probes.push_back(std::nextafter(corner, std::numeric_limits<T>::lowest()));
      }
    }
    return probes;
  }

  void ComparePoints(IRuleBase& rule, plain::Rule<T> expected, Dice& dice) {
    std::int64_t time = 5000;
    for (const T value : Probes(expected, dice)) {
      const auto point = PointOf(++time, value);
      ASSERT_EQ(rule.CheckAlert(point), expected.Alerts(value)) << value;
      ASSERT_EQ(rule.CheckGoldenValue(point), expected.TakesAsGolden({time, value})) << value;
      ASSERT_EQ(rule.GetRuleKSValue(), expected.GoldenText());
      ASSERT_EQ(rule.GetRuleKSValueTime(), expected.golden.time);
    }
  }

  TunedDomain domain_;
  std::map<int, int> learned_;  // how often which type
};
TYPED_TEST_SUITE(LearningLikeTheSecondReading, NumericTypes);

TYPED_TEST(LearningLikeTheSecondReading, OverGeneratedHistories) {
  using T = TypeParam;
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + kDocuments; ++seed) {
    Dice dice(seed);
    const std::vector<T> anchor =
        Values<T>(dice, dice.OneIn(3) ? dice.Below(9) : dice.Between(8, 32));
    const plain::Settings settings = SettingsAround(dice, SeenValues(anchor));
    this->domain_.Tune(settings.ToJson());
    for (int i = 0; i < kHistoriesPerDocument; ++i) {
      std::vector<T> values = anchor;
      const int n = static_cast<int>(anchor.size());
      if (i > 0 && i < kHistoriesPerDocument / 2 && n > 0) {
        // One step from the anchor, for which the limits were chosen.
        const auto at = static_cast<std::size_t>(dice.Below(n));
        if (dice.OneIn(3))
          values.erase(values.begin() + static_cast<std::ptrdiff_t>(at));
        else if (dice.OneIn(2))
          values.insert(values.begin() + static_cast<std::ptrdiff_t>(at), values[at]);
        else
          values[at] = values[static_cast<std::size_t>(dice.Below(n))];
      } else if (i > 0) {
        values = Values<T>(dice, std::max(0, n + dice.Between(-2, 2)));
      }
      const auto history = SeenValues(values);
      this->Compare(history, settings, dice);
      if (this->HasFatalFailure()) {
        FAIL() << "seed " << seed << ", history " << i << "\nsettings " << settings.ToJson()
               << "\nhistory " << plain::HistoryText(history);
      }
    }
  }
  // The generator must reach every kind, or the comparison says little.
  for (const int type : {kIntEqual, kIntEnum, kIntRange, kIntConstant, kIntIncrease}) {
    EXPECT_GT(this->learned_[type], 200) << "type " << type;
  }
  EXPECT_GT(this->learned_[0], 200);
}

}  // namespace
}  // namespace keelstone::testing
