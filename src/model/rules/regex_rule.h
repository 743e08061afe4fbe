#ifndef KEELSTONE_MODEL_RULES_REGEX_RULE_H
#define KEELSTONE_MODEL_RULES_REGEX_RULE_H

#include <string>

#include "model/rules/string_rules.h"

namespace keelstone {

/// The text should match a regular expression somewhere (Perl syntax, letter case does not
/// count). Prescribed only; the pattern is the rule's parameter. A pattern that PatternFault
/// names, or that is too costly on a text, is logged and counts as no match; a text costs no
/// more than about a second.
class KSStrRegexRule final : public StringRule<KSStrRegexRule, StrEqualData> {
 public:
  static constexpr EnumRuleType kType = kStrRegex;
  static constexpr const char* kInit = "KSStrRegexRule::Init";
  static constexpr const char* kSourceFile = "ksstrregexrule";

  static bool StrIsMatch(const std::string& value, const std::string& pattern);
  static bool Breaks(const StrEqualData& data, const std::string& text) {
    return !StrIsMatch(text, data.ruleParam);
  }
};

template <>
struct RuleClassOf<kStrRegex> {
  template <class>
  using For = KSStrRegexRule;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_REGEX_RULE_H
