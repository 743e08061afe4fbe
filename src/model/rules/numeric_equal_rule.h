#ifndef KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H

#include <cstdint>

#include "model/history/history_steps.h"
#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should stay what it is: learned from histories whose successive values
/// mostly do not change.
template <class T>
class NumericEqualRule final : public LearnedRule<NumericRule<T, IntEqualData>> {
  using Base = LearnedRule<NumericRule<T, IntEqualData>>;

 public:
  using typename Base::Data;

  explicit NumericEqualRule(EnumRuleType type = kIntEqual) : Base(type) {}

  bool CheckRule(const std::string& domainId) override {
    this->domainId_ = domainId;
    return Base::CheckRule(domainId);
  }
  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->Lesson();
    return feature != nullptr && settings.intEqual &&
           Fits(*feature, this->History(), *settings.intEqual, isLessCountCondition_) &&
           this->Accept(domainId);
  }

  /// The learning test itself.
  static bool Fits(const KSNumercialDataFeature<T>& feature, const NumercialHistoryData<T>* history,
                   const KSIntEqualRuleSetting& settings, bool isLessCountCondition) {
    return isLessCountCondition ? FitsLessCount(feature, history, settings)
                                : FitsFullCount(feature, settings);
  }

  bool UpdateRuleWith(const RuleSettings* settings) override {
    Data* const data = this->RuleData();
    if (data == nullptr) return false;
    if (const auto* const stable = StablePoint(
            this->History(), settings == nullptr ? nullptr : settings->intEqual.get())) {
      data->value = stable->value;
      data->golden = *stable;
    }
    return true;
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->TakeGoldenIf(point, [](const Data& data, T value) { return value == data.value; });
  }

  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->AlertIf(point, Breaks);
  }

  static bool Breaks(const Data& data, T value) { return value != data.value; }

  void setIsLessCountCondition(bool lessCount) override { isLessCountCondition_ = lessCount; }

 private:
  using Feature = KSNumercialDataFeature<T>;
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

  bool isLessCountCondition_ = false;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_EQUAL_RULE_H
