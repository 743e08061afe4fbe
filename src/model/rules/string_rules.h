#ifndef KEELSTONE_MODEL_RULES_STRING_RULES_H
#define KEELSTONE_MODEL_RULES_STRING_RULES_H

#include <memory>
#include <string>
#include <string_view>

#include "model/rules/text_rule.h"

namespace keelstone {

/// The text should stay what it is. Leading and trailing spaces and line feeds do not
/// count. Learned.
class KSStringEqualRule final
    : public LearnedRule<TextRule<StrHisotryData, KSStringDataFeature, StrEqualData>> {
 public:
  explicit KSStringEqualRule(EnumRuleType type = kStrEqual) : LearnedRule(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override;
  bool UpdateRuleWith(const RuleSettings* settings) override;
  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override;
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override;
  static bool Breaks(const StrEqualData& data, std::string_view text);

 protected:
  void LogRefusedHistory(const std::string& text) const override;
};

/// The text should be one of a few that it changes between. Learned.
class KSStringEnumRule final
    : public LearnedRule<TextRule<StrHisotryData, KSStringDataFeature, StrEnumData>> {
 public:
  explicit KSStringEnumRule(EnumRuleType type = kStrEnum) : LearnedRule(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override;
  bool UpdateRuleWith(const RuleSettings* settings) override;
  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override;
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override;
  static bool Breaks(const StrEnumData& data, std::string_view text);

 protected:
  void LogRefusedHistory(const std::string& text) const override;
};

/// The text should be none of the listed ones. Prescribed only.
class KSStrNoEqualRule final : public TextRule<StrHisotryData, KSStringDataFeature, StrEnumData> {
 public:
  explicit KSStrNoEqualRule(EnumRuleType type = kStrNoEqual) : TextRule(type) {}

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override;
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override;
  static bool Breaks(const StrEnumData& data, std::string_view text);

 protected:
  void LogRefusedHistory(const std::string& text) const override;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_STRING_RULES_H
