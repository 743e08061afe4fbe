#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "calc/ksrulealgmgr.h"
#include "model/textruledata.h"
#include "tests/support/odd_texts.h"
#include "tests/support/text_points.h"
#include "tests/support/text_second_reading.h"
#include "tests/support/tuned_domain.h"

// Learning and judging of strings and tables against the second reading of the rules, over
// generated settings and histories that crowd around every threshold.
namespace keelstone::testing {
namespace {

using plain::SeenText;
using History = std::vector<SeenText>;

constexpr unsigned kFirstSeed = 9001;
constexpr unsigned kDocuments = 500;
constexpr int kHistoriesPerDocument = 30;

class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}

  int Below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  int Between(int least, int most) { return least + Below(most - least + 1); }
  bool OneIn(int n) { return Below(n) == 0; }
  template <class Item>
  const Item& Pick(const std::vector<Item>& items) {
    return items[static_cast<std::size_t>(Below(static_cast<int>(items.size())))];
  }
  std::string OddText() { return SomeOddText(random_); }

 private:
  std::mt19937 random_;
};

/// Values in runs of few lengths, out of few states.
History SomeHistory(Dice& dice, int n) {
  std::vector<std::string> states;
  for (int i = dice.Between(1, 8); i > 0; --i) {
    states.push_back(dice.OneIn(3) ? dice.OddText() : "state " + std::to_string(dice.Below(8)));
  }
  const int steadiness = dice.Between(1, 6);
  History history;
  while (static_cast<int>(history.size()) < n) {
    SeenText seen{1000 + static_cast<std::int64_t>(history.size()), {}, {}, {}, dice.OneIn(2)};
    if (!history.empty() && !dice.OneIn(steadiness)) {
      seen.value = history.back().value;
    } else {
      seen.value = dice.Pick(states);
    }
    seen.table = "{\"row\":" + std::to_string(history.size()) + "}";
    seen.columns = {"c" + std::to_string(dice.Below(3)), "k"};
    history.push_back(seen);
  }
  return history;
}

/// A frequency at or right beside what the history shows, or any.
double Frequency(Dice& dice, float shown) {
  switch (dice.Below(6)) {
    case 0:
      return static_cast<double>(shown);
    case 1:
      return std::nextafter(static_cast<double>(shown), 2.0);
    case 2:
      return std::nextafter(static_cast<double>(shown), -1.0);
    case 3:
      return static_cast<double>(0.33F);
    case 4:
      return dice.Below(11) / 10.0;
    default:
      return 0.0;
  }
}

/// Settings whose limits lie at what this history shows.
plain::TextSettings SettingsAround(Dice& dice, const History& history) {
  const plain::TextStatistics shown = plain::ObserveTexts(history);
  const int distinct = static_cast<int>(shown.occurrences.size());
  const auto near = [&](int number) { return number + dice.Between(-1, 1); };
  plain::TextSettings s;
  if (dice.OneIn(10)) return s;
  for (plain::TextSettings::Lasting* lasting : {&s.equal, &s.table}) {
    lasting->dataCountMinLimit = dice.OneIn(2) ? near(shown.count) : 3;
    lasting->valueStatusCount = dice.OneIn(2) ? near(distinct) : 6;
    lasting->changeFrequency = Frequency(dice, shown.changeFrequency);
    lasting->countEqualValueLimit = dice.Between(-1, 6);
  }
  s.enumeration.dataCountMinLimit = dice.OneIn(2) ? near(shown.count) : dice.Below(10);
  s.enumeration.valueStatusCount = dice.OneIn(2) ? near(distinct) : 6;
  s.enumeration.changeFrequency = Frequency(dice, shown.changeFrequency);
  // What some value's share is: its count divided by the number of values.
  double share = 1;
  if (distinct > 0) {
    auto value = shown.occurrences.begin();
    std::advance(value, dice.Below(distinct));
    share = static_cast<double>(value->second) / distinct;
  }
  s.enumeration.alertThreshold =
      dice.Pick<double>({0.1F, 0.0, 1e-5, 0.99e-5, -1e-5, share, share - 1e-6, share - 1.1e-6,
                         share - 0.9e-6, share + 1e-5, -1.0, 100.0});
  return s;
}

std::shared_ptr<KSDataBase> PointOf(const SeenText& seen, bool isTable) {
  if (!isTable) return StringPoint(seen.time, seen.value);
  return TablePoint(seen);
}

class TextLearningLikeTheSecondReading : public ::testing::TestWithParam<bool> {
 protected:
  static constexpr EnumKSDataType DataType(bool isTable) {
    return isTable ? KSDataTable : KSDataString;
  }
  bool isTable() const { return GetParam(); }

  void Compare(const History& history, const plain::TextSettings& settings, Dice& dice) {
    const EnumAlgType algorithm = isTable() ? KSAlgTable : KSAlgString;
    const auto made = MakeHistory(DataType(isTable()));
    for (const SeenText& seen : history) made->AddData(PointOf(seen, isTable()), 1 << 20);
    const std::string text = made->ToString();
    if (!isTable()) {
      ASSERT_EQ(text, plain::TextHistory(history));
    }
    if (history.empty()) return;

    std::shared_ptr<HistoryDataBase> points;
    std::shared_ptr<KSDataFeature> feature;
    KSRuleAlgMgr::Instance()->GetHistoryAndDataFeatrue(text, DataType(isTable()), points, feature);
    ASSERT_NE(feature, nullptr);
    const auto rule = KSRuleAlgMgr::Instance()->CalculateRule(
        std::make_shared<RuleDefinitionData>(), points, feature, DataType(isTable()), domain_.id(),
        algorithm);
    const auto expected = plain::LearnText(history, isTable(), settings);
    ASSERT_EQ(rule ? static_cast<int>(rule->GetType()) : -1, expected ? expected->rule.type : -1);
    ++learned_[expected ? expected->rule.type : -1];
    if (!rule) return;
    ASSERT_EQ(rule->UpdateRule(), expected->updated);
    if (!expected->updated) ++learned_[100];
    ASSERT_EQ(rule->GetRuleParam(), expected->rule.ParamText());
    if (!isTable() || expected->updated) {
      ASSERT_EQ(rule->GetRuleKSValue(), expected->rule.GoldenText());
    }
    ASSERT_EQ(rule->GetRuleKSValueTime(), expected->rule.golden.time);
    ComparePoints(*rule, expected->rule, dice);

    const auto stored = rule->GetRuleDefineData();
    ASSERT_EQ(stored->history, text);
    const auto rebuilt =
        KSRuleAlgMgr::Instance()->GetRuleByType(algorithm, rule->GetType(), DataType(isTable()));
    rebuilt->Init(stored, domain_.id());
    ASSERT_TRUE(rebuilt->IsEqual(rule.get()));
    plain::TextRule again = expected->rule;
    again.golden = SeenText();
    ComparePoints(*rebuilt, again, dice);
  }

  /// The rule's own texts, what lies beside them, and any text.
  static std::vector<std::string> Probes(const plain::TextRule& rule, Dice& dice) {
    std::vector<std::string> probes = {dice.OddText(), "", rule.golden.value};
    std::vector<std::string> own(rule.texts.begin(), rule.texts.end());
    own.push_back(rule.text);
    for (const std::string& text : own) {
      for (const std::string blank : {"", " ", "\n", "\t", "\r", "x"}) {
        probes.push_back(text + blank);
        probes.push_back(blank + text);
      }
    }
    return probes;
  }

  void ComparePoints(IRuleBase& rule, plain::TextRule expected, Dice& dice) const {
    std::int64_t time = 5000;
    for (const std::string& value : Probes(expected, dice)) {
      const SeenText seen{++time, value, "{\"now\":1}", {"k"}, false};
      const auto point = PointOf(seen, isTable());
      ASSERT_EQ(rule.CheckAlert(point), expected.Alerts(value)) << plain::Quote(value);
      ASSERT_EQ(rule.CheckGoldenValue(point), expected.TakesAsGolden(seen)) << plain::Quote(value);
      ASSERT_EQ(rule.GetRuleKSValueTime(), expected.golden.time);
      if (!isTable() || expected.golden.time != -1) {
        ASSERT_EQ(rule.GetRuleKSValue(), expected.GoldenText());
      }
    }
  }

  TunedDomain domain_;
  std::map<int, int> learned_;  // how often which type; 100: without a parameter
};

TEST_P(TextLearningLikeTheSecondReading, OverGeneratedHistories) {
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + kDocuments; ++seed) {
    Dice dice(seed);
    // A frequency of exactly 0.33 needs a hundred steps.
    const int n = dice.OneIn(12) ? 101 : dice.Between(0, dice.OneIn(2) ? 8 : 32);
    const History anchor = SomeHistory(dice, n);
    const plain::TextSettings settings = SettingsAround(dice, anchor);
    domain_.Tune(settings.ToJson());
    for (int i = 0; i < kHistoriesPerDocument; ++i) {
      History history = anchor;
      if (i > 0 && i < kHistoriesPerDocument / 2 && n > 0) {
        // One step from the anchor, for which the limits were chosen.
        const int at = dice.Below(n);
        const auto place = history.begin() + at;
        if (dice.OneIn(3)) {
          history.erase(place);
        } else if (dice.OneIn(2)) {
          history.insert(place, SeenText(*place));
        } else {
          place->value = anchor[static_cast<std::size_t>(dice.Below(n))].value;
        }
      } else if (i > 0) {
        history = SomeHistory(dice, std::max(0, n + dice.Between(-2, 2)));
      }
      Compare(history, settings, dice);
      if (HasFatalFailure()) {
        FAIL() << "seed " << seed << ", history " << i << "\nsettings " << settings.ToJson()
               << "\nhistory " << plain::TextHistory(history);
      }
    }
  }
  // The generator must reach every kind, or the comparison says little.
  const auto kinds =
      isTable() ? std::vector<int>{-1, kTableMd5} : std::vector<int>{-1, kStrEqual, kStrEnum, 100};
  for (const int type : kinds) EXPECT_GT(learned_[type], 200) << "type " << type;
}

INSTANTIATE_TEST_SUITE_P(StringsAndTables, TextLearningLikeTheSecondReading, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Tables" : "Strings"; });

}  // namespace
}  // namespace keelstone::testing
