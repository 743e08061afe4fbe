#ifndef KEELSTONE_RULE_ENUMS_H
#define KEELSTONE_RULE_ENUMS_H

#include <cstdint>

namespace keelstone {

/// The kind of a rule; the numbers are stored.
enum EnumRuleType : std::int32_t {
  kRuleTypeNone = -1,  // no rule yet
  kStrEqual = 0,
  kStrNoEqual = 1,
  kStrEnum = 2,
  kStrRegex = 3,
  kIntEqual = 4,
  kIntNoEqual = 5,
  kIntEnum = 6,
  kIntRange = 7,
  kIntConstant = 8,
  kIntIncrease = 9,
  kIntLEQ = 10,
  kIntGEQ = 11,
  kTableMd5 = 12,
};
inline constexpr int kRuleTypeCount = 13;

/// The type of a variable's values; the numbers are stored.
enum EnumKSDataType : std::int32_t {
  KSDataUnknown = 0,
  KSDataInt64 = 1,
  KSDataFloat = 2,
  KSDataDouble = 3,
  KSDataString = 4,
  KSDataTable = 5,
};

/// The family of learning algorithms that a data type belongs to.
enum EnumAlgType : std::int32_t {
  KSAlgNumerical = 0,
  KSAlgString = 1,
  KSAlgTable = 2,
};

/// The family of a data type: tables and strings have their own, all else is numeric.
constexpr EnumAlgType AlgTypeOf(EnumKSDataType dataType) noexcept {
  switch (dataType) {
    case KSDataTable:
      return KSAlgTable;
    case KSDataString:
      return KSAlgString;
    default:
      return KSAlgNumerical;
  }
}

}  // namespace keelstone

#endif  // KEELSTONE_RULE_ENUMS_H
