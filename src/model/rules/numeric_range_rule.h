#ifndef KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H

#include <algorithm>
#include <cmath>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should stay within bounds: some standard deviations around the mean.
template <class T>
class NumericRangeRule final : public LearnedRule<NumericRule<T, IntRangeData>> {
  using Base = LearnedRule<NumericRule<T, IntRangeData>>;
  using Traits = NumericTraits<T>;

 public:
  using typename Base::Data;

  explicit NumericRangeRule(EnumRuleType type = kIntRange) : Base(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->Lesson();
    // How often a value must occur to count is the enumeration's threshold.
    return feature != nullptr && settings.intRange && settings.intEnum &&
           Fits(*feature, *settings.intRange, *settings.intEnum) && this->Accept(domainId);
  }

  /// The learning test itself.
  static bool Fits(const KSNumercialDataFeature<T>& feature, const KSIntRangeRuleSetting& settings,
                   const KSIntEnumRuleSetting& occurrences) {
    return feature.count >= settings.dataCountMinLimit &&
           HasMoreOccurring(feature.valueCounts, occurrences.alertThreshold,
                            settings.valueStatusCount);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->Feature();
    const auto* const history = this->History();
    if (data == nullptr || feature == nullptr || history == nullptr || settings == nullptr ||
        !settings->intRange) {
      return false;
    }
    LearnBounds(*feature, *settings->intRange, *data);
    const auto* const golden =
        NewestFittingPoint(history->points(), [data](T value) { return IsWithin(*data, value); });
    if (golden == nullptr) return false;
    data->golden = *golden;
    return true;
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->TakeGoldenIf(point, IsWithin);
  }

  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->AlertIf(point, Breaks);
  }

  static bool Breaks(const Data& data, T value) { return !IsWithin(data, value); }

 private:
  static bool IsWithin(const Data& data, T value) {
    return !(value < data.minValue || value > data.maxValue);
  }

  static void LearnBounds(const KSNumercialDataFeature<T>& feature,
                          const KSIntRangeRuleSetting& settings, Data& data) {
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

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_RANGE_RULE_H
