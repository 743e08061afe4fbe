#ifndef KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H

#include <cmath>

#include "model/rules/numeric_rule.h"

namespace keelstone {

/// What the constant and the increase rule share: values that hardly ever fall. A rule
/// learned by these tests has no "ruleParam" yet; it judges values only after it was
/// rebuilt from a definition whose parameter text has one.
template <class Rule, class T>
class NumericTrendRule : public LearnedRule<NumericRule<Rule, T, IntEqualData>> {
  using Base = LearnedRule<NumericRule<Rule, T, IntEqualData>>;

 public:
  using typename Base::Case;
  using typename Base::Data;
  using typename Base::Feature;

  bool UpdateRuleWith(const RuleSettings*) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->OwnFeature();
    if (data == nullptr || feature == nullptr) return false;
    data->value = feature->lastPoint.value;
    data->golden = feature->lastPoint;
    return true;
  }

  bool IsComplete() const { return hasParameter_; }

  void UpdateParam(const std::shared_ptr<KSDataBase>& point) override {
    Data* const data = this->RuleData();
    const auto* const number = this->AsPoint(point);
    if (data != nullptr && number != nullptr && !this->IsDynamic()) data->value = number->value;
  }

 protected:
  void NoteHasParameter(bool hasParameter) override { hasParameter_ = hasParameter; }

  /// A decrease is tolerated when there are few, and the last is larger than
  /// "deltaLZeroValue" times the largest increase: a counter that started anew.
  static bool HardlyFalls(const Feature& feature, const KSTrendRuleSetting& settings) {
    if (feature.count < settings.dataCountMinLimit) return false;
    if (feature.negativeDeltaCount > settings.deltaLZeroCount) return false;
    // An increase without bounds times 0 is no number and refuses nothing.
    return feature.negativeDeltaCount <= 0 ||
           !(settings.deltaLZeroValue * feature.maxDelta >= std::fabs(feature.lastNegativeDelta));
  }

 private:
  bool hasParameter_ = false;
};

/// The value should stay as it was: mostly unchanged from one value to the next.
template <class T>
class NumericConstantRule final : public NumericTrendRule<NumericConstantRule<T>, T> {
  using Base = NumericTrendRule<NumericConstantRule, T>;

 public:
  static constexpr EnumRuleType kType = kIntConstant;
  using typename Base::Case;
  using typename Base::Data;

  static bool Fits(const Case& lesson) {
    const auto* const settings = lesson.settings.template Of<kIntConstant>();
    return settings != nullptr && Base::HardlyFalls(lesson.feature, *settings) &&
           lesson.feature.zeroDeltaCount > lesson.feature.count * settings->deltaEZero;
  }

  /// For data from a parameter text that has "ruleParam".
  static bool Breaks(const Data& data, T value) { return value != data.value; }
  /// The newest that differs.
  static bool IsGolden(const Data& data, T value) { return Breaks(data, value); }
};

template <>
struct RuleClassOf<kIntConstant> {
  template <class T>
  using For = NumericConstantRule<T>;
};

/// The value should grow from one value to the next.
template <class T>
class NumericIncreaseRule final : public NumericTrendRule<NumericIncreaseRule<T>, T> {
  using Base = NumericTrendRule<NumericIncreaseRule, T>;

 public:
  static constexpr EnumRuleType kType = kIntIncrease;
  using typename Base::Case;
  using typename Base::Data;

  static bool Fits(const Case& lesson) {
    const auto* const settings = lesson.settings.template Of<kIntIncrease>();
    return settings != nullptr && Base::HardlyFalls(lesson.feature, *settings) &&
           lesson.feature.zeroDeltaCount <= lesson.feature.count * settings->deltaEZero;
  }

  /// For data from a parameter text that has "ruleParam".
  static bool Breaks(const Data& data, T value) { return !(value > data.value); }
};

template <>
struct RuleClassOf<kIntIncrease> {
  template <class T>
  using For = NumericIncreaseRule<T>;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H
