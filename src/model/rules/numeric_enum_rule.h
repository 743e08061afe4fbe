#ifndef KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H

#include <cstdint>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should be one of a few that it changes between.
template <class T>
class NumericEnumRule final : public LearnedRule<NumericRule<T, IntEnumData>> {
  using Base = LearnedRule<NumericRule<T, IntEnumData>>;

 public:
  using typename Base::Data;

  explicit NumericEnumRule(EnumRuleType type = kIntEnum) : Base(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->Lesson();
    return feature != nullptr && settings.intEnum && Fits(*feature, *settings.intEnum) &&
           this->Accept(domainId);
  }

  /// The learning test itself.
  static bool Fits(const KSNumercialDataFeature<T>& feature, const KSIntEnumRuleSetting& settings) {
    return feature.count >= settings.dataCountMinLimit &&
           !feature.valueCounts.HasMoreThan(settings.valueStatusCount) &&
           static_cast<float>(feature.zeroDeltaCount) <=
               NarrowToFloat(feature.count * settings.deltaEZero);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->Feature();
    const auto* const history = this->History();
    if (data == nullptr || feature == nullptr || history == nullptr || settings == nullptr ||
        !settings->intEnum) {
      return false;
    }
    boost::container::flat_set<T> values;
    FrequentValues(feature->valueCounts, settings->intEnum->alertThreshold, values);
    if (values.empty()) return false;
    data->values = std::move(values);
    const auto* const golden = NewestFittingPoint(
        history->points(), [data](T value) { return data->values.contains(value); });
    if (golden == nullptr) return false;
    data->golden = *golden;
    return true;
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->TakeGoldenIf(
        point, [](const Data& data, T value) { return data.values.contains(value); });
  }

  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->AlertIf(point, Breaks);
  }

  static bool Breaks(const Data& data, T value) { return !data.values.contains(value); }
};

/// The value should be none of the listed ones. Prescribed only, never learned.
template <class T>
class NumericNotEqualRule final : public NumericRule<T, IntEnumData> {
  using Base = NumericRule<T, IntEnumData>;

 public:
  using typename Base::Data;

  explicit NumericNotEqualRule(EnumRuleType type = kIntNoEqual) : Base(type) {}

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->TakeGoldenIf(
        point, [](const Data& data, T value) { return !data.values.contains(value); });
  }

  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->AlertIf(point, Breaks);
  }

  static bool Breaks(const Data& data, T value) { return data.values.contains(value); }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_ENUM_RULE_H
