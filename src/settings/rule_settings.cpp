#include "settings/rule_settings.h"

#include <cstddef>

namespace keelstone {

namespace {

constexpr std::size_t kNoRuleType = kRuleTypeCount;      // any number that is no rule type
constexpr std::size_t kNoRuleYet = kRuleTypeCount + 1U;  // -1

std::size_t SlotOf(EnumRuleType type) {
  if (type == kRuleTypeNone) return kNoRuleYet;
  return type < 0 || type >= kRuleTypeCount ? kNoRuleType : static_cast<std::size_t>(type);
}

}  // namespace

RuleSettings::RuleSettings(const KSRuleGlobalSetting& document)
    : typed_(LoadedSettingsOf(document, EveryRuleType())), limits_() {
  for (int type = kRuleTypeNone; type <= kRuleTypeCount; ++type) {
    const auto ruleType = static_cast<EnumRuleType>(type);
    limits_[SlotOf(ruleType)] = {document.GetHistoryDataCount(ruleType),
                                 document.GetLiveTMInterval(ruleType)};
  }
}

std::int32_t RuleSettings::HistoryDataCount(EnumRuleType type) const {
  return limits_[SlotOf(type)].historyDataCount;
}

std::int32_t RuleSettings::LiveInterval(EnumRuleType type) const {
  return limits_[SlotOf(type)].liveInterval;
}

}  // namespace keelstone
