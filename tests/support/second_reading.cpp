#include "tests/support/second_reading.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace keelstone::testing::plain {

namespace {

enum : int { kEqual = 4, kNoEqual, kEnum, kRange, kConstant, kIncrease, kLess, kGreater };

template <class T>
constexpr bool kWhole = std::is_same_v<T, std::int64_t>;

template <class T>
T Tolerance() {
  return kWhole<T> ? T(0) : static_cast<T>(1e-5L);
}

std::string Text(std::int64_t value) { return NumberText(value); }
std::string Text(double value) { return NumberText(value); }
std::string Text(float value) {
  if (!std::isfinite(value)) return "null";
  char shortest[40] = "";
  for (int digits = 1; std::strtof(shortest, nullptr) != value || shortest[0] == 0; ++digits) {
    std::snprintf(shortest, sizeof shortest, "%.*e", digits - 1, static_cast<double>(value));
  }
  return NumberText(std::strtod(shortest, nullptr));
}

template <class T>
T Difference(T later, T earlier) {
  if constexpr (kWhole<T>) {
    return static_cast<T>(static_cast<std::uint64_t>(later) - static_cast<std::uint64_t>(earlier));
  } else {
    return later - earlier;
  }
}

template <class T>
void NoteExtremes(Statistics<T>& s, T value) {
  const T e = Tolerance<T>();
  if constexpr (kWhole<T>) {
    if (value > s.max) s.max = value;
    if (value < s.min) s.min = value;
  } else {
    if (static_cast<T>(s.max - value) < e) s.max = value;
    if (static_cast<T>(value - s.min) < e) s.min = value;
  }
}

template <class T>
void NoteDifference(Statistics<T>& s, T d) {
  const T e = Tolerance<T>();
  bool zero = d == 0;
  if constexpr (!kWhole<T>) zero = std::fabs(d) <= e;
  if (zero) {
    ++s.zeroDeltas;
  } else if (kWhole<T> ? d < 0 : d < e) {
    ++s.negativeDeltas;
    s.lastNegativeDelta = static_cast<double>(d);
  }
  bool larger = false;
  if constexpr (std::is_same_v<T, float>) {
    larger = static_cast<float>(d - static_cast<float>(s.maxDelta)) > e;
  } else {
    larger = static_cast<double>(d) - s.maxDelta > static_cast<double>(e);
  }
  if (larger) s.maxDelta = static_cast<double>(d);
}

}  // namespace

std::string NumberText(std::int64_t value) { return std::to_string(value); }

std::string NumberText(double value) {
  if (!std::isfinite(value)) return "null";
  char digits[40];
  int precision = 0;
  do {
    std::snprintf(digits, sizeof digits, "%.*e", precision, value);
  } while (std::strtod(digits, nullptr) != value && ++precision < 18);
  const int exponent =
      std::atoi(std::string(digits).substr(std::string(digits).find('e') + 1).c_str());
  if (value != 0 && (std::fabs(value) < 1e-4 || std::fabs(value) >= 1e16)) return digits;
  const int decimals = precision - exponent > 1 ? precision - exponent : 1;
  char plain[400];
  std::snprintf(plain, sizeof plain, "%.*f", decimals, value);
  return plain;
}

std::string Settings::ToJson() const {
  const auto field = [](const char* key, const std::string& value) {
    return std::string("\"") + key + "\":" + value;
  };
  const auto whole = [&](const char* key, int value) { return field(key, std::to_string(value)); };
  const auto ratio = [&](const char* key, double value) { return field(key, NumberText(value)); };
  const auto nested = [&](const char* key, double value) {
    return field(key, "{" + ratio("deltaEZero", value) + "}");
  };
  const auto trend = [&](const char* key, const Trend& t) {
    return field(key, "{" + whole("dataCountMinLimit", t.dataCountMinLimit) + "," +
                          ratio("deltaEZero", t.deltaEZero) + "," +
                          whole("deltaLZeroCount", t.deltaLZeroCount) + "," +
                          whole("deltaLZeroValue", t.deltaLZeroValue) + "," +
                          whole("timeIntervalLimit", t.timeIntervalLimit) + "," +
                          whole("dataCountHistory", t.dataCountHistory) + "}");
  };
  std::string text = "{";
  text += field("intEqual", "{" + whole("dataCountThreshold", equal.dataCountThreshold) + "," +
                                whole("dataCountMinLimit", equal.dataCountMinLimit) + "," +
                                nested("condition0", equal.condition0) + "," +
                                nested("condition1", equal.condition1) + "," +
                                nested("condition2", equal.condition2) + "," +
                                whole("timeIntervalLimit", equal.timeIntervalLimit) + "," +
                                whole("countEqualValueLimit", equal.countEqualValueLimit) + "," +
                                whole("dataCountHistory", equal.dataCountHistory) + "," +
                                whole("valueStatusCount", equal.valueStatusCount) + "}");
  text += ",";
  text += field("intEnum", "{" + whole("dataCountMinLimit", enumeration.dataCountMinLimit) + "," +
                               ratio("deltaEZero", enumeration.deltaEZero) + "," +
                               ratio("alertThreshold", enumeration.alertThreshold) + "," +
                               whole("timeIntervalLimit", enumeration.timeIntervalLimit) + "," +
                               whole("dataCountHistory", enumeration.dataCountHistory) + "," +
                               whole("valueStatusCount", enumeration.valueStatusCount) + "}");
  text += ",";
  text += field("intRange", "{" + whole("dataCountMinLimit", range.dataCountMinLimit) + "," +
                                whole("valueStatusCount", range.valueStatusCount) + "," +
                                whole("lowerBoundMinValue", range.lowerBoundMinValue) + "," +
                                whole("upperBoundMaxValue", range.upperBoundMaxValue) + "," +
                                whole("percentageMaxValue", range.percentageMaxValue) + "," +
                                whole("stdCoefficient", range.stdCoefficient) + "," +
                                whole("timeIntervalLimit", range.timeIntervalLimit) + "," +
                                whole("dataCountHistory", range.dataCountHistory) + "}");
  return text + "," + trend("intConstant", constant) + "," + trend("intIncrease", increase) + "}";
}

int Settings::LiveInterval(int ruleType) const {
  if (ruleType == kEqual) return equal.timeIntervalLimit;
  if (ruleType == kEnum) return enumeration.timeIntervalLimit;
  if (ruleType == kRange) return range.timeIntervalLimit;
  if (ruleType == kConstant) return constant.timeIntervalLimit;
  if (ruleType == kIncrease) return increase.timeIntervalLimit;
  return 0;  // not in the document
}

int Settings::HistoryLength(int ruleType) const {
  if (ruleType == kEqual) return equal.dataCountHistory;
  if (ruleType == kEnum) return enumeration.dataCountHistory;
  if (ruleType == kRange) return range.dataCountHistory;
  if (ruleType == kConstant) return constant.dataCountHistory;
  if (ruleType == kIncrease) return increase.dataCountHistory;
  return 0;
}

template <class T>
std::string HistoryText(const std::vector<Seen<T>>& history) {
  if (history.empty()) return "";
  const int dataType = kWhole<T> ? 1 : std::is_same_v<T, float> ? 2 : 3;
  std::string list;
  for (const Seen<T>& seen : history) {
    if (!list.empty()) list += ",";
    list += "{\"liveTime\":" + Text(seen.time) + ",\"dataValue\":" + Text(seen.value) + "}";
  }
  return "{\"dataType\":" + std::to_string(dataType) + ",\"dataList\":[" + list + "]}";
}

template <class T>
Statistics<T> Observe(const std::vector<Seen<T>>& history) {
  Statistics<T> s;
  s.count = static_cast<int>(history.size());
  if (history.empty()) return s;

  s.max = s.min = history[0].value;
  double sum = static_cast<double>(history[0].value);
  s.occurrences[history[0].value] += 1;
  for (std::size_t i = 1; i < history.size(); ++i) {
    const T value = history[i].value;
    sum += static_cast<double>(value);
    NoteExtremes(s, value);
    NoteDifference(s, Difference(value, history[i - 1].value));
    s.occurrences[value] += 1;
  }

  const double exact = sum / s.count;
  // A double beyond single precision becomes an infinity.
  s.mean = std::fabs(exact) > 3.4028235677973366e38L
               ? std::copysign(HUGE_VAL, exact)
               : static_cast<double>(static_cast<float>(exact));
  s.max = s.min = history[0].value;
  double squares = 0;
  for (const Seen<T>& seen : history) {
    NoteExtremes(s, seen.value);
    const double x = static_cast<double>(seen.value);
    squares += ((x - s.mean) / s.mean) * (x + s.mean) * s.mean;
  }
  s.std = std::sqrt(squares / s.count);
  return s;
}

template <class T>
std::string Rule<T>::ParamText() const {
  if (type == kEnum || type == kNoEqual) {
    std::string list;
    for (const T v : values) list += (list.empty() ? "" : ",") + Text(v);
    return "{\"ruleParam\":[" + list + "]}";
  }
  if (type == kRange) return "{\"maxValue\":" + Text(upper) + ",\"minValue\":" + Text(lower) + "}";
  return "{\"ruleParam\":" + Text(value) + "}";
}

template <class T>
std::string Rule<T>::GoldenText() const {
  return Text(golden.value);
}

template <class T>
bool Rule<T>::SameAs(const Rule& other) const {
  if (type != other.type) return false;
  if (type == kEnum || type == kNoEqual) return values == other.values;
  if (type == kRange) return upper == other.upper && lower == other.lower;
  return value == other.value;
}

template <class T>
bool Rule<T>::Alerts(T v) const {
  switch (type) {
    case kEqual:
      return v != value;
    case kNoEqual:
      return values.count(v) > 0;
    case kEnum:
      return values.count(v) == 0;
    case kRange:
      return v < lower || v > upper;
    case kConstant:
      return hasParam && v != value;
    case kIncrease:
      return hasParam && v <= value;
    case kLess:
      return v > value;
    case kGreater:
      return v < value;
    default:
      return false;
  }
}

template <class T>
bool Rule<T>::TakesAsGolden(Seen<T> seen) {
  bool takes = false;
  if (type == kConstant) {
    takes = hasParam && seen.value != value;
  } else if (type == kIncrease) {
    takes = hasParam && seen.value > value;
  } else {
    takes = !Alerts(seen.value);
  }
  if (takes) golden = seen;
  return takes;
}

namespace {

template <class T>
std::optional<Seen<T>> FindStable(const std::vector<Seen<T>>& history, int k) {
  const int n = static_cast<int>(history.size());
  for (int i = n - 1; i >= k - 1 && i >= 0; --i) {
    const Seen<T>& candidate = history[static_cast<std::size_t>(i)];
    if (k < 2) return candidate;
    int same = 1;
    for (int j = i - 1; j >= 0; --j) {
      if (history[static_cast<std::size_t>(j)].value != candidate.value) break;
      ++same;
    }
    if (same >= k) return candidate;
  }
  return std::nullopt;
}

template <class T>
bool FitsEqual(const std::vector<Seen<T>>& history, const Statistics<T>& s,
               const Settings::Equal& set, bool lessCount) {
  const int n = s.count;
  const double steps = static_cast<double>(static_cast<float>(n - 1));
  const int distinct = static_cast<int>(s.occurrences.size());
  const double z = s.zeroDeltas;
  if (!lessCount) {
    return !(n < set.dataCountThreshold || distinct > set.valueStatusCount ||
             steps * set.condition2 >= z);
  }
  if (n >= set.dataCountThreshold) return !(steps * set.condition0 > z);
  if (n <= set.dataCountMinLimit) return false;
  return distinct <= set.valueStatusCount && steps * set.condition1 < z &&
         FindStable(history, set.countEqualValueLimit).has_value();
}

template <class T>
bool HardlyFalls(const Statistics<T>& s, const Settings::Trend& set) {
  if (s.count < set.dataCountMinLimit || s.negativeDeltas > set.deltaLZeroCount) return false;
  return s.negativeDeltas == 0 ||
         !(set.deltaLZeroValue * s.maxDelta >= std::fabs(s.lastNegativeDelta));
}

template <class T>
bool FitsRange(const Statistics<T>& s, const Settings& set) {
  int frequent = 0;
  for (const auto& [value, times] : s.occurrences) {
    if (times - set.enumeration.alertThreshold > 1e-6) ++frequent;
  }
  return s.count >= set.range.dataCountMinLimit && frequent > set.range.valueStatusCount;
}

template <class T>
bool FitsEnum(const Statistics<T>& s, const Settings::Enum& set) {
  if (static_cast<int>(s.occurrences.size()) > set.valueStatusCount) return false;
  if (s.count < set.dataCountMinLimit) return false;
  const double limit = s.count * set.deltaEZero;
  return static_cast<float>(s.zeroDeltas) <= static_cast<float>(limit);
}

template <class T>
int ChooseType(const std::vector<Seen<T>>& history, const Statistics<T>& s, const Settings& set) {
  if (history.empty()) return -1;
  const auto still = [&](const Settings::Trend& t) {
    return s.zeroDeltas > s.count * t.deltaEZero;
  };
  if (FitsEqual(history, s, set.equal, true)) return kEqual;
  if (HardlyFalls(s, set.increase) && !still(set.increase)) return kIncrease;
  if (HardlyFalls(s, set.constant) && still(set.constant)) return kConstant;
  if (FitsRange(s, set)) return kRange;
  if (FitsEnum(s, set.enumeration)) return kEnum;
  if (FitsEqual(history, s, set.equal, false)) return kEqual;
  return -1;
}

template <class Real>
Real HalfUp(Real number) {
  const Real below = std::floor(number);
  return number - below >= Real(0.5) ? below + Real(1) : below;
}

template <class T>
T Bound(double number) {
  if constexpr (kWhole<T>) {
    const double rounded = HalfUp(number);
    if (rounded >= 9223372036854775808.0) return std::numeric_limits<T>::max();
    if (rounded < -9223372036854775808.0) return std::numeric_limits<T>::min();
    return static_cast<T>(rounded);
  } else {
    const T real = static_cast<T>(number);
    const T hundredfold = real * T(100);
    // So large a number has no decimals to round.
    if (std::isinf(hundredfold)) return real;
    return HalfUp(hundredfold) / T(100);
  }
}

template <class T>
void SetBounds(Rule<T>& rule, const Statistics<T>& s, const Settings::Range& set) {
  using Real = std::conditional_t<std::is_same_v<T, float>, float, double>;
  const Real k = static_cast<Real>(set.stdCoefficient) * static_cast<Real>(s.std);
  const Real mean = static_cast<Real>(s.mean);
  if (!std::isfinite(mean - k) || !std::isfinite(mean + k)) {
    // Whole bounds need no way through a double.
    rule.lower = kWhole<T> ? s.min : Bound<T>(static_cast<double>(s.min));
    rule.upper = kWhole<T> ? s.max : Bound<T>(static_cast<double>(s.max));
  } else {
    rule.lower = Bound<T>(static_cast<double>(static_cast<Real>(mean - k)));
    rule.upper = Bound<T>(static_cast<double>(static_cast<Real>(mean + k)));
  }
  if (rule.lower <= 0) rule.lower = static_cast<T>(set.lowerBoundMinValue);
  if (s.max < static_cast<T>(set.percentageMaxValue) && s.min >= 0 &&
      rule.upper > static_cast<T>(set.upperBoundMaxValue)) {
    rule.upper = static_cast<T>(set.upperBoundMaxValue);
  }
}

template <class T>
bool TakeNewestFitting(Rule<T>& rule, const std::vector<Seen<T>>& history) {
  for (auto seen = history.rbegin(); seen != history.rend(); ++seen) {
    if (rule.Alerts(seen->value)) continue;
    rule.golden = *seen;
    return true;
  }
  return false;
}

template <class T>
bool Update(Rule<T>& rule, const std::vector<Seen<T>>& history, const Statistics<T>& s,
            const Settings& set) {
  switch (rule.type) {
    case kEqual:
      if (const auto stable = FindStable(history, set.equal.countEqualValueLimit)) {
        rule.value = stable->value;
        rule.golden = *stable;
      }
      return true;
    case kConstant:
    case kIncrease:
      rule.golden = history.back();
      rule.value = history.back().value;
      return true;
    case kRange:
      SetBounds(rule, s, set.range);
      return TakeNewestFitting(rule, history);
    default: {
      const double ratio = set.enumeration.alertThreshold;
      if (std::fabs(ratio) < 1e-5) return false;
      for (const auto& [value, times] : s.occurrences) {
        if (times / static_cast<double>(s.occurrences.size()) - ratio > 1e-6) {
          rule.values.insert(value);
        }
      }
      return !rule.values.empty() && TakeNewestFitting(rule, history);
    }
  }
}

}  // namespace

template <class T>
std::optional<Learned<T>> Learn(const std::vector<Seen<T>>& history, const Settings& settings) {
  const Statistics<T> s = Observe(history);
  Learned<T> learned;
  learned.rule.type = ChooseType(history, s, settings);
  if (learned.rule.type < 0) return std::nullopt;
  learned.updated = Update(learned.rule, history, s, settings);
  return learned;
}

template <class T>
void Variable<T>::Prescribe(const Rule<T>& rule) {
  prescribed_ = true;
  rule_ = rule;
  rule_->hasParam = true;
  param_ = rule.ParamText();
}

template <class T>
typename Variable<T>::Answer Variable<T>::See(std::int64_t time, T value,
                                              const std::string& valueText, bool onDemand) {
  Answer answer;
  const bool mayLearn = !onDemand && !prescribed_;
  const std::int64_t age = time - (history_.empty() ? 0 : history_.back().time);
  const int limit = rule_ ? settings_.LiveInterval(rule_->type) : intervalTime_;
  bool golden = false;
  bool changed = false;
  const int oldType = type();
  if (mayLearn && age > limit) {
    if (auto learned = Learn(history_, settings_)) {
      changed = !rule_ || !learned->rule.SameAs(*rule_);
      golden = changed && learned->updated;
      rule_ = learned->rule;
    }
    const int keep = rule_ ? settings_.HistoryLength(rule_->type) : 10;
    while (!history_.empty() && static_cast<int>(history_.size()) >= keep) {
      history_.erase(history_.begin());
    }
    history_.push_back({time, value});
  } else if (rule_ && prescribed_) {
    golden = rule_->TakesAsGolden({time, value});
  }
  if (!rule_) return answer;

  if (rule_->Alerts(value)) {
    std::string quoted;
    for (const char c : param_) quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
    answer.alert = "{\"_t\":" + std::to_string(oldType) + ",\"_p\":\"" + quoted + "\",\"_v\":\"" +
                   valueText + "\"}";
  }
  if (prescribed_ && (rule_->type == kConstant || rule_->type == kIncrease)) rule_->value = value;
  if (golden) {
    answer.golden = rule_->GoldenText();
    answer.goldenTime = rule_->golden.time;
  }
  if (changed) {
    answer.ruleParam = rule_->ParamText();
    answer.ruleType = rule_->type;
  }
  param_ = rule_->ParamText();
  // The next run builds the rule from its stored parameter.
  rule_->hasParam = true;
  rule_->golden = Seen<T>();
  return answer;
}

template std::string HistoryText(const std::vector<Seen<std::int64_t>>&);
template std::string HistoryText(const std::vector<Seen<float>>&);
template std::string HistoryText(const std::vector<Seen<double>>&);
template Statistics<std::int64_t> Observe(const std::vector<Seen<std::int64_t>>&);
template Statistics<float> Observe(const std::vector<Seen<float>>&);
template Statistics<double> Observe(const std::vector<Seen<double>>&);
template struct Rule<std::int64_t>;
template struct Rule<float>;
template struct Rule<double>;
template std::optional<Learned<std::int64_t>> Learn(const std::vector<Seen<std::int64_t>>&,
                                                    const Settings&);
template std::optional<Learned<float>> Learn(const std::vector<Seen<float>>&, const Settings&);
template std::optional<Learned<double>> Learn(const std::vector<Seen<double>>&, const Settings&);
template class Variable<std::int64_t>;
template class Variable<float>;
template class Variable<double>;

}  // namespace keelstone::testing::plain
