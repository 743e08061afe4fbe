#ifndef KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H

#include "model/rules/numeric_rule.h"

namespace keelstone {

/// The value should not pass a bound: `kBound` says on which side. Prescribed only, never
/// learned.
template <class T, EnumRuleType kBound>
class NumericLimitRule final : public NumericRule<NumericLimitRule<T, kBound>, T, IntEqualData> {
  static_assert(kBound == kIntLEQ || kBound == kIntGEQ);

 public:
  static constexpr EnumRuleType kType = kBound;

  static bool Breaks(const IntEqualData<T>& data, T value) {
    return kBound == kIntLEQ ? value > data.value : value < data.value;
  }
};

template <>
struct RuleClassOf<kIntLEQ> {
  template <class T>
  using For = NumericLimitRule<T, kIntLEQ>;
};

template <>
struct RuleClassOf<kIntGEQ> {
  template <class T>
  using For = NumericLimitRule<T, kIntGEQ>;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_LIMIT_RULE_H
