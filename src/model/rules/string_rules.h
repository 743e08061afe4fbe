#ifndef KEELSTONE_MODEL_RULES_STRING_RULES_H
#define KEELSTONE_MODEL_RULES_STRING_RULES_H

#include <string_view>

#include "model/rules/text_rule.h"

namespace keelstone {

template <class Rule, class DataType>
using StringRule = TextRule<Rule, DataType, StrHisotryData, KSStringDataFeature>;

/// The text should stay what it is. Leading and trailing spaces and line feeds do not
/// count. Learned.
class KSStringEqualRule final : public LearnedRule<StringRule<KSStringEqualRule, StrEqualData>> {
 public:
  static constexpr EnumRuleType kType = kStrEqual;
  static constexpr const char* kInit = "KSStringEqualRule::Init";
  static constexpr const char* kSourceFile = "ksstringrules";

  static bool Fits(const Case& lesson);
  bool UpdateRuleWith(const RuleSettings* settings) override;
  static bool Breaks(const StrEqualData& data, std::string_view text);
};

template <>
struct RuleClassOf<kStrEqual> {
  template <class>
  using For = KSStringEqualRule;
};

/// The text should be one of a few that it changes between. Learned.
class KSStringEnumRule final : public LearnedRule<StringRule<KSStringEnumRule, StrEnumData>> {
 public:
  static constexpr EnumRuleType kType = kStrEnum;
  static constexpr const char* kInit = "KSStringEnumRule::Init";
  static constexpr const char* kSourceFile = "ksstringrules";

  static bool Fits(const Case& lesson);
  bool UpdateRuleWith(const RuleSettings* settings) override;
  static bool Breaks(const StrEnumData& data, std::string_view text);
};

template <>
struct RuleClassOf<kStrEnum> {
  template <class>
  using For = KSStringEnumRule;
};

/// The text should be none of the listed ones. Prescribed only.
class KSStrNoEqualRule final : public StringRule<KSStrNoEqualRule, StrEnumData> {
 public:
  static constexpr EnumRuleType kType = kStrNoEqual;
  static constexpr const char* kInit = "KSStrNoEqualRule::Init";
  static constexpr const char* kSourceFile = "ksstringrules";

  static bool Breaks(const StrEnumData& data, std::string_view text);
};

template <>
struct RuleClassOf<kStrNoEqual> {
  template <class>
  using For = KSStrNoEqualRule;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_STRING_RULES_H
