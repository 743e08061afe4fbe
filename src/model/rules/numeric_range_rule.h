#ifndef KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H

#include <algorithm>
#include <cmath>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should stay within bounds: some standard deviations around the mean.
template <class T>
class NumericRangeRule final
    : public LearnedRule<NumericRule<NumericRangeRule<T>, T, IntRangeData>> {
  using Base = LearnedRule<NumericRule<NumericRangeRule, T, IntRangeData>>;
  using Traits = NumericTraits<T>;

 public:
  static constexpr EnumRuleType kType = kIntRange;
  using typename Base::Case;
  using typename Base::Data;
  using typename Base::Feature;

  static bool Fits(const Case& lesson) {
    const auto* const settings = lesson.settings.template Of<kIntRange>();
    // How often a value must occur to count is the enumeration's threshold.
    const auto* const occurrences = lesson.settings.template Of<kIntEnum>();
    return settings != nullptr && occurrences != nullptr &&
           lesson.feature.count >= settings->dataCountMinLimit &&
           HasMoreOccurring(lesson.feature.valueCounts, occurrences->alertThreshold,
                            settings->valueStatusCount);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->OwnFeature();
    const auto* const history = this->OwnHistory();
    const auto* const own = settings == nullptr ? nullptr : settings->template Of<kIntRange>();
    if (data == nullptr || feature == nullptr || history == nullptr || own == nullptr) {
      return false;
    }
    LearnBounds(*feature, *own, *data);
    const auto* const golden =
        NewestFittingPoint(history->points(), [data](T value) { return !Breaks(*data, value); });
    if (golden == nullptr) return false;
    data->golden = *golden;
    return true;
  }

  static bool Breaks(const Data& data, T value) {
    return value < data.minValue || value > data.maxValue;
  }

 private:
  static void LearnBounds(const Feature& feature, const KSIntRangeRuleSetting& settings,
                          Data& data) {
    using Real = typename Traits::Real;
    const Real mean = static_cast<Real>(feature.mean);
    const Real spread = static_cast<Real>(settings.stdCoefficient) * static_cast<Real>(feature.std);
    // The deviation of values that spread little around a large mean often comes out as
    // not a number: then the extremes themselves are the bounds.
    const bool bounded = std::isfinite(mean - spread) && std::isfinite(mean + spread);
    T lower = bounded ? Traits::RoundBound(mean - spread) : Traits::RoundValue(feature.minValue);
    T upper = bounded ? Traits::RoundBound(mean + spread) : Traits::RoundValue(feature.maxValue);
    if (Traits::IsLowerReplaced(lower)) lower = static_cast<T>(settings.lowerBoundMinValue);
    const bool isPercentage = feature.maxValue < static_cast<T>(settings.percentageMaxValue) &&
                              !(feature.minValue < T(0));
    if (isPercentage) upper = std::min(upper, static_cast<T>(settings.upperBoundMaxValue));
    data.maxValue = upper;
    data.minValue = lower;
  }
};

template <>
struct RuleClassOf<kIntRange> {
  template <class T>
  using For = NumericRangeRule<T>;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H
