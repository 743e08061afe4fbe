#ifndef KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H

#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should not pass a bound: `kType` says on which side. Prescribed only, never
/// learned.
template <class T, EnumRuleType kType>
class NumericLimitRule final : public NumericRule<T, IntEqualData> {
  static_assert(kType == kIntLEQ || kType == kIntGEQ);
  using Base = NumericRule<T, IntEqualData>;

 public:
  using typename Base::Data;

  explicit NumericLimitRule(EnumRuleType type = kType) : Base(type) {}

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    return this->TakeGoldenIf(point,
                              [](const Data& data, T value) { return !Breaks(data, value); });
  }
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    return this->AlertIf(point, Breaks);
  }

  static bool Breaks(const Data& data, T value) {
    return kType == kIntLEQ ? value > data.value : value < data.value;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H
