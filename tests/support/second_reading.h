#ifndef KEELSTONE_TESTS_SUPPORT_SECOND_READING_H
#define KEELSTONE_TESTS_SUPPORT_SECOND_READING_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The rules of numbers read a second time: plain, slow code over vectors that shares
/// nothing with the library, to hold the library against.
namespace keelstone::testing::plain {

template <class T>
struct Seen {
  std::int64_t time = -1;
  T value{};
};

/// A domain's general settings of the numeric rules.
struct Settings {
  struct Equal {
    int dataCountThreshold = 10;
    int dataCountMinLimit = 3;
    double condition0 = 0.9;
    double condition1 = 0.8F;
    double condition2 = 0.66F;
    int timeIntervalLimit = 216000;
    int countEqualValueLimit = 3;
    int dataCountHistory = 30;
    int valueStatusCount = 3;
  } equal;
  struct Enum {
    int dataCountMinLimit = 10;
    double deltaEZero = 0.66F;
    double alertThreshold = 0.1F;
    int timeIntervalLimit = 216000;
    int dataCountHistory = 30;
    int valueStatusCount = 3;
  } enumeration;
  struct Range {
    int dataCountMinLimit = 10;
    int valueStatusCount = 6;
    int lowerBoundMinValue = 0;
    int upperBoundMaxValue = 100;
    int percentageMaxValue = 95;
    int stdCoefficient = 3;
    int timeIntervalLimit = 216000;
    int dataCountHistory = 30;
  } range;
  struct Trend {
    int dataCountMinLimit = 10;
    double deltaEZero = 0.2F;
    int deltaLZeroCount = 1;
    int deltaLZeroValue = 10;
    int timeIntervalLimit = 216000;
    int dataCountHistory = 30;
  } constant, increase = {10, 0.2F, 1, 10, 21600, 30};

  /// The document that a domain stores.
  std::string ToJson() const;
  int LiveInterval(int ruleType) const;
  int HistoryLength(int ruleType) const;
};

/// Numbers as stored texts write them.
std::string NumberText(std::int64_t value);
std::string NumberText(double value);

template <class T>
std::string HistoryText(const std::vector<Seen<T>>& history);

template <class T>
struct Statistics {
  int count = 0;
  double mean = 0;
  double std = 0;
  int zeroDeltas = 0;
  int negativeDeltas = 0;
  double maxDelta = 0;
  double lastNegativeDelta = 0;
  T max{};
  T min{};
  std::map<T, int> occurrences;
};

template <class T>
Statistics<T> Observe(const std::vector<Seen<T>>& history);

/// A rule by its number (4 to 11) with its parameters, of which each kind has its own.
template <class T>
struct Rule {
  int type = -1;
  T value = T(-1);     // equal, constant, increase and the two limits
  std::set<T> values;  // enumeration and not-equal
  T upper = T(-1);     // range
  T lower = T(-1);
  bool hasParam = false;  // constant and increase: built from a stored parameter
  Seen<T> golden;

  std::string ParamText() const;
  std::string GoldenText() const;
  bool SameAs(const Rule& other) const;
  bool Alerts(T value) const;
  /// Whether the value becomes the golden one.
  bool TakesAsGolden(Seen<T> seen);
};

template <class T>
struct Learned {
  Rule<T> rule;
  bool updated = false;  // the rule found its parameter and golden value
};

/// What is learned from a history; nothing when no kind fits.
template <class T>
std::optional<Learned<T>> Learn(const std::vector<Seen<T>>& history, const Settings& settings);

/// One variable on one device through its runs, each of which is on disk before the next.
template <class T>
class Variable {
 public:
  struct Answer {
    std::optional<std::string> alert;   // the alert's text
    std::optional<std::string> golden;  // the golden value's text
    std::int64_t goldenTime = 0;
    std::optional<std::string> ruleParam;  // of a rule result
    int ruleType = -1;
  };

  explicit Variable(Settings settings) : settings_(settings) {}

  /// Prescribes a rule in the place of learning.
  void Prescribe(const Rule<T>& rule);
  Answer See(std::int64_t time, T value, const std::string& valueText, bool onDemand);

  const std::vector<Seen<T>>& history() const { return history_; }
  const std::string& param() const { return param_; }
  int type() const { return rule_ ? rule_->type : -1; }

 private:
  Settings settings_;
  int intervalTime_ = 1800;
  bool prescribed_ = false;
  std::optional<Rule<T>> rule_;
  std::string param_ = "null";  // what a definition without a rule shows
  std::vector<Seen<T>> history_;
};

}  // namespace keelstone::testing::plain

#endif  // KEELSTONE_TESTS_SUPPORT_SECOND_READING_H
