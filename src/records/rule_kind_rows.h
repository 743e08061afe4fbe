#ifndef KEELSTONE_RECORDS_RULE_KIND_ROWS_H
#define KEELSTONE_RECORDS_RULE_KIND_ROWS_H

#include <array>
#include <cstddef>
#include <utility>

#include "keelstone/rule_kinds.h"

namespace keelstone {

namespace rule_parameters {

using Members = std::array<ParameterMember, 3>;
inline constexpr Members kText = {{{"ruleParam", ParameterKind::kText}}};
inline constexpr Members kTexts = {{{"ruleParam", ParameterKind::kTexts}}};
inline constexpr Members kPattern = {{{"ruleParam", ParameterKind::kPattern}}};
inline constexpr Members kNumber = {{{"ruleParam", ParameterKind::kNumber}}};
inline constexpr Members kNumbers = {{{"ruleParam", ParameterKind::kNumbers}}};
inline constexpr Members kLastNumber = {{{"ruleParam", ParameterKind::kNumber, false}}};
inline constexpr Members kBounds = {
    {{"minValue", ParameterKind::kNumber}, {"maxValue", ParameterKind::kNumber}}};
inline constexpr Members kDigest = {{{"hashCmp", ParameterKind::kText},
                                     {"hashSort", ParameterKind::kBool, false},
                                     {"hashColumns", ParameterKind::kTexts, false}}};

}  // namespace rule_parameters

/// The kinds of rules, one row a type in the order of their numbers. What is made of a kind at
/// compile time is attached to its number beside each class: `RuleClassOf` its rule,
/// `SettingClassOf` its settings.
inline constexpr std::array<RuleKind, kRuleTypeCount> kRuleKinds = {{
    {.type = kStrEqual,
     .name = "strEqual",
     .family = KSAlgString,
     .parameter = rule_parameters::kText,
     .expectation = kExpectValue,
     .words = "always ",
     .unread = "always the same",
     .isTrimmed = true,
     .candidate = {1}},
    {.type = kStrNoEqual,
     .name = "strNoEqual",
     .family = KSAlgString,
     .parameter = rule_parameters::kTexts,
     .expectation = kExpectNotValue,
     .words = "none of "},
    {.type = kStrEnum,
     .name = "strEnum",
     .family = KSAlgString,
     .parameter = rule_parameters::kTexts,
     .expectation = kExpectSet,
     .words = "one of ",
     .candidate = {2}},
    {.type = kStrRegex,
     .name = "strRegex",
     .family = KSAlgString,
     .parameter = rule_parameters::kPattern,
     .expectation = kExpectPattern,
     .words = "matching ",
     .isCheckedByParameter = false},
    {.type = kIntEqual,
     .name = "intEqual",
     .parameter = rule_parameters::kNumber,
     .expectation = kExpectValue,
     .words = "always ",
     .unread = "always the same",
     .candidate = {1, 6}},
    {.type = kIntNoEqual,
     .name = "intNoEqual",
     .parameter = rule_parameters::kNumbers,
     .expectation = kExpectNotValue,
     .words = "none of "},
    {.type = kIntEnum,
     .name = "intEnum",
     .parameter = rule_parameters::kNumbers,
     .expectation = kExpectSet,
     .words = "one of ",
     .candidate = {5}},
    {.type = kIntRange,
     .name = "intRange",
     .parameter = rule_parameters::kBounds,
     .expectation = kExpectBounds,
     .words = "between ",
     .candidate = {4},
     .lentSetting = "intEnum.alertThreshold"},
    {.type = kIntConstant,
     .name = "intConstant",
     .parameter = rule_parameters::kLastNumber,
     .expectation = kExpectConstant,
     .words = "constant at ",
     .unread = "constant",
     .candidate = {3},
     .followsValues = true},
    {.type = kIntIncrease,
     .name = "intIncrease",
     .parameter = rule_parameters::kLastNumber,
     .expectation = kExpectIncreasing,
     .words = "rising above ",
     .unread = "rising",
     .candidate = {2},
     .followsValues = true},
    {.type = kIntLEQ,
     .name = "intLEQ",
     .parameter = rule_parameters::kNumber,
     .expectation = kExpectAtMost,
     .words = "at most "},
    {.type = kIntGEQ,
     .name = "intGEQ",
     .parameter = rule_parameters::kNumber,
     .expectation = kExpectAtLeast,
     .words = "at least "},
    // Its live interval is read where the types without settings look.
    {.type = kTableMd5,
     .name = "tableMd5",
     .family = KSAlgTable,
     .parameter = rule_parameters::kDigest,
     .expectation = kExpectDigest,
     .words = "the table with digest ",
     .unread = "the same table",
     .candidate = {1},
     .isCheckedByParameter = false,
     .lentSetting = ".timeIntervalLimit",
     .isIntervalLent = true},
}};

constexpr const RuleKind& KindOf(EnumRuleType type) {
  return kRuleKinds[static_cast<std::size_t>(type)];
}

constexpr bool IsRuleType(EnumRuleType type) { return type >= 0 && type < kRuleTypeCount; }

/// An array with what `make` answers for each type, in the order of the types. `make` is
/// called as `make.template operator()<kIntEqual>()`.
template <class Make>
constexpr auto ForEachRuleType(Make make) {
  return [&]<std::size_t... kTypes>(std::index_sequence<kTypes...>) {
    return std::array { make.template operator()<static_cast<EnumRuleType>(kTypes)>()... };
  }(std::make_index_sequence<kRuleTypeCount>());
}

static_assert(
    [] {
      for (std::size_t i = 0; i < kRuleKinds.size(); ++i) {
        if (static_cast<std::size_t>(kRuleKinds[i].type) != i) return false;
      }
      return true;
    }(),
    "each kind has a row, in the order of the numbers");

}  // namespace keelstone

#endif  // KEELSTONE_RECORDS_RULE_KIND_ROWS_H
