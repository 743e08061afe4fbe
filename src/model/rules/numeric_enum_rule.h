#ifndef KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H

#include <utility>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should be one of a few that it changes between.
template <class T>
class NumericEnumRule final : public LearnedRule<NumericRule<NumericEnumRule<T>, T, IntEnumData>> {
  using Base = LearnedRule<NumericRule<NumericEnumRule, T, IntEnumData>>;

 public:
  static constexpr EnumRuleType kType = kIntEnum;
  using typename Base::Case;
  using typename Base::Data;

  static bool Fits(const Case& lesson) {
    const auto* const settings = lesson.settings.template Of<kIntEnum>();
    const auto& feature = lesson.feature;
    return settings != nullptr && feature.count >= settings->dataCountMinLimit &&
           !feature.valueCounts.HasMoreThan(settings->valueStatusCount) &&
           static_cast<float>(feature.zeroDeltaCount) <=
               NarrowToFloat(feature.count * settings->deltaEZero);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->OwnFeature();
    const auto* const history = this->OwnHistory();
    const auto* const own = settings == nullptr ? nullptr : settings->template Of<kIntEnum>();
    if (data == nullptr || feature == nullptr || history == nullptr || own == nullptr) {
      return false;
    }
    boost::container::flat_set<T> values;
    FrequentValues(feature->valueCounts, own->alertThreshold, values);
    if (values.empty()) return false;
    data->values = std::move(values);
    const auto* const golden = NewestFittingPoint(
        history->points(), [data](T value) { return data->values.contains(value); });
    if (golden == nullptr) return false;
    data->golden = *golden;
    return true;
  }

  static bool Breaks(const Data& data, T value) { return !data.values.contains(value); }
};

template <>
struct RuleClassOf<kIntEnum> {
  template <class T>
  using For = NumericEnumRule<T>;
};

/// The value should be none of the listed ones. Prescribed only, never learned.
template <class T>
class NumericNotEqualRule final : public NumericRule<NumericNotEqualRule<T>, T, IntEnumData> {
 public:
  static constexpr EnumRuleType kType = kIntNoEqual;

  static bool Breaks(const IntEnumData<T>& data, T value) { return data.values.contains(value); }
};

template <>
struct RuleClassOf<kIntNoEqual> {
  template <class T>
  using For = NumericNotEqualRule<T>;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H
