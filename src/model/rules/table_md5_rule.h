#ifndef KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H
#define KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H

#include <string>

#include "model/rules/text_rule.h"

namespace keelstone {

/// A table should keep its digest, compared byte for byte. Learned.
class KSTableMd5EqualRule final
    : public LearnedRule<
          TextRule<KSTableMd5EqualRule, TablMd5EqualData, TableHistoryData, KSTableDataFeature>> {
 public:
  static constexpr EnumRuleType kType = kTableMd5;
  static constexpr const char* kInit = "KSTableMd5EqualRule::Init";
  static constexpr const char* kSourceFile = "kstablemd5equalrule";

  static bool Fits(const Case& lesson);
  bool UpdateRuleWith(const RuleSettings* settings) override;
  static bool Breaks(const TablMd5EqualData& data, const std::string& digest);
  /// The golden table itself, not any that has the expected digest.
  static bool IsGolden(const TablMd5EqualData& data, const std::string& digest);
};

template <>
struct RuleClassOf<kTableMd5> {
  template <class>
  using For = KSTableMd5EqualRule;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_TABLE_MD5_RULE_H
