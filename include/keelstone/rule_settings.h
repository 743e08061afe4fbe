#ifndef KEELSTONE_RULE_SETTINGS_H
#define KEELSTONE_RULE_SETTINGS_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "keelstone/rule_global_setting.h"

namespace keelstone {

/// All typed settings of one general-settings document, loaded once so that judging a
/// value reads no JSON. Immutable and shared by every thread. A settings object that
/// did not load is empty: its rule type is then not learned.
class RuleSettings {
 public:
  explicit RuleSettings(const KSRuleGlobalSetting& document);

  /// GetHistoryDataCount of the document.
  std::int32_t HistoryDataCount(EnumRuleType type) const;
  /// GetLiveTMInterval of the document, seconds.
  std::int32_t LiveInterval(EnumRuleType type) const;

  const std::shared_ptr<const KSStrEqualRuleSetting> strEqual;
  const std::shared_ptr<const KSStrEnumRuleSetting> strEnum;
  const std::shared_ptr<const KSIntEqualRuleSetting> intEqual;
  const std::shared_ptr<const KSIntEnumRuleSetting> intEnum;
  const std::shared_ptr<const KSIntRangeRuleSetting> intRange;
  const std::shared_ptr<const KSIntConstantRuleSetting> intConstant;
  const std::shared_ptr<const KSIntIncreaseRuleSetting> intIncrease;
  const std::shared_ptr<const KSMd5TableRuleSetting> tableMd5;

 private:
  struct Limits {
    std::int32_t historyDataCount;
    std::int32_t liveInterval;
  };
  // One entry a rule type, then one for any type that is none, then one for -1.
  std::array<Limits, kRuleTypeCount + 2> limits_;
};

/// The door through which rules see their domain's present settings; empty when the
/// domain has no data manager. It costs no lock while no domain is loaded or reloaded.
/// Any thread. (The storage of domains stands behind it.)
std::shared_ptr<const RuleSettings> DomainRuleSettings(const std::string& domainId);

}  // namespace keelstone

#endif  // KEELSTONE_RULE_SETTINGS_H
