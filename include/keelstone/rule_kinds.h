#ifndef KEELSTONE_RULE_KINDS_H
#define KEELSTONE_RULE_KINDS_H

#include <array>
#include <cstdint>
#include <string_view>

#include "keelstone/export.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// What a rule compares a value with.
enum EnumExpectationKind : std::int32_t {
  kExpectNothing = 0,     // the parameter cannot be read
  kExpectValue = 1,       // equal to the parameter
  kExpectNotValue = 2,    // equal to none of several
  kExpectSet = 3,         // equal to one of several
  kExpectBounds = 4,      // not below the least, not above the most
  kExpectAtMost = 5,      // not above the parameter
  kExpectAtLeast = 6,     // not below the parameter
  kExpectIncreasing = 7,  // above the parameter
  kExpectConstant = 8,    // equal to the parameter
  kExpectPattern = 9,     // the pattern is found in it: Perl syntax, whatever the letter case
  kExpectDigest = 10,     // its digest is the parameter
};

/// What a member of a rule's parameter is. Lists hold one element at least.
enum class ParameterKind : std::int32_t { kText, kTexts, kNumber, kNumbers, kBool, kPattern };

/// A member of a rule's parameter, a JSON object.
struct ParameterMember {
  const char* name = nullptr;
  ParameterKind kind = ParameterKind::kNumber;
  bool isRequired = true;
};

/// All that is said of one kind of rule besides its class. Constant, lives as long as the
/// process; any thread.
struct RuleKind {
  EnumRuleType type = kRuleTypeNone;
  const char* name = "";                // in documents, and the key of its general settings
  EnumAlgType family = KSAlgNumerical;  // of the values that it judges
  /// The members of its parameter; those without a name are none.
  std::array<ParameterMember, 3> parameter = {};

  EnumExpectationKind expectation = kExpectNothing;
  const char* words = "";   // before its parameter: "between "
  const char* unread = "";  // instead of one that is not learned yet; "": it always has one
  bool isTrimmed = false;   // spaces and line feeds at the ends do not count

  /// Where it stands among the candidates of its family, from 1; twice for the kind that
  /// is tried by its test for short histories first, 0 where not at all.
  std::array<std::int8_t, 2> candidate = {};
  bool followsValues = false;  // prescribed, it takes every value for its parameter
  /// Whether its parameter alone tells if a value breaks it, without a rule being made.
  bool isCheckedByParameter = true;
  /// A setting that it reads beyond those of its own name; nullptr: none.
  const char* lentSetting = nullptr;
  bool isIntervalLent = false;  // and that is its live interval, whatever its own says
};

/// The kind of a rule type; nullptr for what is none.
KEELSTONE_EXPORT const RuleKind* FindRuleKind(EnumRuleType type) noexcept;
/// The kind of this name ("intLEQ"); nullptr where there is none.
KEELSTONE_EXPORT const RuleKind* FindRuleKind(std::string_view name) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_RULE_KINDS_H
