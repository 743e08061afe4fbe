#ifndef KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H

#include <cmath>

#include "model/rules/numeric_rule.h"

namespace keelstone {

/// What the constant and the increase rule share: values that hardly ever fall. A rule
/// learned by these tests has no "ruleParam" yet; it judges values only after it was
/// rebuilt from a definition whose parameter text has one.
template <class T>
class NumericTrendRule : public LearnedRule<NumericRule<T, IntEqualData>> {
  using Base = LearnedRule<NumericRule<T, IntEqualData>>;

 public:
  using Base::Base;
  using typename Base::Data;

  bool UpdateRuleWith(const RuleSettings*) override {
    Data* const data = this->RuleData();
    const auto* const feature = this->Feature();
    if (data == nullptr || feature == nullptr) return false;
    data->value = feature->lastPoint.value;
    data->golden = feature->lastPoint;
    return true;
  }

  bool Judges(const std::shared_ptr<KSDataBase>& point) const override {
    return hasParameter_ && Base::Judges(point);
  }

  void UpdateParam(const std::shared_ptr<KSDataBase>& point) override {
    Data* const data = this->RuleData();
    const auto* const number = this->AsPoint(point);
    if (data != nullptr && number != nullptr && !this->IsDynamic()) data->value = number->value;
  }

 protected:
  void NoteHasParameter(bool hasParameter) override { hasParameter_ = hasParameter; }
  bool HasParameter() const { return hasParameter_; }

  /// A decrease is tolerated when there are few, and the last is larger than
  /// "deltaLZeroValue" times the largest increase: a counter that started anew.
  static bool HardlyFalls(const KSNumercialDataFeature<T>& feature,
                          const KSTrendRuleSetting& settings) {
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
class NumericConstantRule final : public NumericTrendRule<T> {
  using Base = NumericTrendRule<T>;

 public:
  using typename Base::Data;

  explicit NumericConstantRule(EnumRuleType type = kIntConstant) : Base(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->Lesson();
    return feature != nullptr && settings.intConstant && Fits(*feature, *settings.intConstant) &&
           this->Accept(domainId);
  }

  /// The learning test itself.
  static bool Fits(const KSNumercialDataFeature<T>& feature, const KSTrendRuleSetting& settings) {
    return Base::HardlyFalls(feature, settings) &&
           feature.zeroDeltaCount > feature.count * settings.deltaEZero;
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->HasParameter() && this->TakeGoldenIf(point, Breaks);
  }
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->HasParameter() && this->AlertIf(point, Breaks);
  }

  /// For data from a parameter text that has "ruleParam".
  static bool Breaks(const Data& data, T value) { return value != data.value; }
};

/// The value should grow from one value to the next.
template <class T>
class NumericIncreaseRule final : public NumericTrendRule<T> {
  using Base = NumericTrendRule<T>;

 public:
  using typename Base::Data;

  explicit NumericIncreaseRule(EnumRuleType type = kIntIncrease) : Base(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->Lesson();
    return feature != nullptr && settings.intIncrease && Fits(*feature, *settings.intIncrease) &&
           this->Accept(domainId);
  }

  /// The learning test itself.
  static bool Fits(const KSNumercialDataFeature<T>& feature, const KSTrendRuleSetting& settings) {
    return Base::HardlyFalls(feature, settings) &&
           feature.zeroDeltaCount <= feature.count * settings.deltaEZero;
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->HasParameter() && this->TakeGoldenIf(point, [](const Data& data, T value) {
      return !Breaks(data, value);
    });
  }
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->HasParameter() && this->AlertIf(point, Breaks);
  }

  /// For data from a parameter text that has "ruleParam".
  static bool Breaks(const Data& data, T value) { return !(value > data.value); }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_TREND_RULE_H
