#ifndef KEELSTONE_MODEL_RULES_REGEX_RULE_H
#define KEELSTONE_MODEL_RULES_REGEX_RULE_H

#include <memory>
#include <string>

#include "model/rules/text_rule.h"

namespace keelstone {

/// The text should match a regular expression somewhere (Perl syntax, letter case does not
/// count). Prescribed only; the pattern is the rule's parameter. A pattern that PatternFault
/// names, or that is too costly on a text, is logged and counts as no match; a text costs no
/// more than about a second.
class KSStrRegexRule final : public TextRule<StrHisotryData, KSStringDataFeature, StrEqualData> {
 public:
  explicit KSStrRegexRule(EnumRuleType type = kStrRegex) : TextRule(type) {}

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override;
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override;

  static bool StrIsMatch(const std::string& value, const std::string& pattern);

 protected:
  void LogRefusedHistory(const std::string& text) const override;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_REGEX_RULE_H
