#ifndef KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H
#define KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H

#include <memory>
#include <string>

#include "model/rules/text_rule.h"

namespace keelstone {

/// A table should keep its digest, compared byte for byte. Learned.
class KSTableMd5EqualRule final
    : public LearnedRule<TextRule<TableHistoryData, KSTableDataFeature, TablMd5EqualData>> {
 public:
  explicit KSTableMd5EqualRule(EnumRuleType type = kTableMd5) : LearnedRule(type) {}

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override;
  bool UpdateRuleWith(const RuleSettings* settings) override;
  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override;
  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override;

 protected:
  void LogRefusedHistory(const std::string& text) const override;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H
