#ifndef KEELSTONE_MODEL_RULES_NUMERIC_RULES_H
#define KEELSTONE_MODEL_RULES_NUMERIC_RULES_H

#include <cstdint>

#include "model/rules/numeric_enum_rule.h"
#include "model/rules/numeric_equal_rule.h"
#include "model/rules/numeric_limit_rule.h"
#include "model/rules/numeric_range_rule.h"
#include "model/rules/numeric_trend_rule.h"

/// The names of the numeric rules, kind by kind and value type by value type.
namespace keelstone {

using KSIntEqualRule = NumericEqualRule<std::int64_t>;
using KSFloatEqualRule = NumericEqualRule<float>;
using KSDoubleEqualRule = NumericEqualRule<double>;

// Without the ending "Rule" that its siblings carry.
using KSIntNotEqual = NumericNotEqualRule<std::int64_t>;
using KSFloatNotEqualRule = NumericNotEqualRule<float>;
using KSDoubleNotEqualRule = NumericNotEqualRule<double>;

using KSIntEnumRule = NumericEnumRule<std::int64_t>;
using KSFloatEnumRule = NumericEnumRule<float>;
using KSDoubleEnumRule = NumericEnumRule<double>;

using KSIntRangeRule = NumericRangeRule<std::int64_t>;
using KSFloatRangeRule = NumericRangeRule<float>;
using KSDoubleRangeRule = NumericRangeRule<double>;

using KSIntConstantRule = NumericConstantRule<std::int64_t>;
using KSFloatConstantRule = NumericConstantRule<float>;
using KSDoubleConstantRule = NumericConstantRule<double>;

using KSIntIncreaseRule = NumericIncreaseRule<std::int64_t>;
using KSFloatIncreaseRule = NumericIncreaseRule<float>;
using KSDoubleIncreaseRule = NumericIncreaseRule<double>;

using KSIntLessEqualRule = NumericLimitRule<std::int64_t, kIntLEQ>;
using KSFloatLessEqualRule = NumericLimitRule<float, kIntLEQ>;
using KSDoubleLessEqualRule = NumericLimitRule<double, kIntLEQ>;

using KSIntGreaterEqualRule = NumericLimitRule<std::int64_t, kIntGEQ>;
using KSFloatGreaterEqualRule = NumericLimitRule<float, kIntGEQ>;
using KSDoubleGreaterEqualRule = NumericLimitRule<double, kIntGEQ>;

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_RULES_H
