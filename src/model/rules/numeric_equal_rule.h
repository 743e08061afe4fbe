#ifndef KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H

#include <string>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should stay what it is: learned from histories whose successive values
/// mostly do not change.
template <class T>
class NumericEqualRule final
    : public LearnedRule<NumericRule<NumericEqualRule<T>, T, IntEqualData>> {
  using Base = LearnedRule<NumericRule<NumericEqualRule, T, IntEqualData>>;

 public:
  static constexpr EnumRuleType kType = kIntEqual;
  using typename Base::Case;
  using typename Base::Data;
  using typename Base::Feature;

  /// The domain is known from here on, whether the test fits or not.
  bool CheckRule(const std::string& domainId) override {
    this->domainId_ = domainId;
    return Base::CheckRule(domainId);
  }

  static bool Fits(const Case& lesson) {
    const Settings* const settings = lesson.settings.template Of<kIntEqual>();
    if (settings == nullptr) return false;
    return lesson.isLessCount ? FitsLessCount(lesson.feature, lesson.history, *settings)
                              : FitsFullCount(lesson.feature, *settings);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    if (data == nullptr) return false;
    const Settings* const own = settings == nullptr ? nullptr : settings->template Of<kIntEqual>();
    if (const auto* const stable = StablePoint(this->OwnHistory(), own)) {
      data->value = stable->value;
      data->golden = *stable;
    }
    return true;
  }

  static bool Breaks(const Data& data, T value) { return value != data.value; }

  void setIsLessCountCondition(bool lessCount) override { this->isLessCount_ = lessCount; }

 private:
  using Settings = KSIntEqualRuleSetting;

  // The number of differences, rounded through single precision as the thresholds expect.
  static double Differences(const Feature& feature) {
    return static_cast<double>(static_cast<float>(feature.count - 1));
  }

  static bool HasFewValues(const Feature& feature, const Settings& settings) {
    return !feature.valueCounts.HasMoreThan(settings.valueStatusCount);
  }

  static bool FitsLessCount(const Feature& feature, const NumercialHistoryData<T>* history,
                            const Settings& settings) {
    const double differences = Differences(feature);
    if (feature.count >= settings.dataCountThreshold) {
      // Exactly the ratio is enough here, and not enough below.
      return !(differences * settings.condition0DeltaEZero > feature.zeroDeltaCount);
    }
    return feature.count > settings.dataCountMinLimit && HasFewValues(feature, settings) &&
           differences * settings.condition1DeltaEZero < feature.zeroDeltaCount &&
           StablePoint(history, &settings) != nullptr;
  }

  static bool FitsFullCount(const Feature& feature, const Settings& settings) {
    return feature.count >= settings.dataCountThreshold && HasFewValues(feature, settings) &&
           Differences(feature) * settings.condition2DeltaEZero < feature.zeroDeltaCount;
  }

  static const KSDataPoint<T>* StablePoint(const NumercialHistoryData<T>* history,
                                           const Settings* settings) {
    if (history == nullptr) return nullptr;
    return NewestStablePoint(history->points(),
                             settings == nullptr ? 3 : settings->countEqualValueLimit);
  }
};

template <>
struct RuleClassOf<kIntEqual> {
  template <class T>
  using For = NumericEqualRule<T>;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H
