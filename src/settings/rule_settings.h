#ifndef KEELSTONE_SETTINGS_RULE_SETTINGS_H
#define KEELSTONE_SETTINGS_RULE_SETTINGS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>

#include "keelstone/rule_global_setting.h"
#include "settings/setting_classes.h"

namespace keelstone {

/// All typed settings of one general-settings document, loaded once so that judging a
/// value reads no JSON. Immutable and shared by every thread. A type whose settings did not
/// load is not learned.
class RuleSettings {
 public:
  explicit RuleSettings(const KSRuleGlobalSetting& document);

  /// GetHistoryDataCount of the document.
  std::int32_t HistoryDataCount(EnumRuleType type) const;
  /// GetLiveTMInterval of the document, seconds.
  std::int32_t LiveInterval(EnumRuleType type) const;

  /// The settings of a type; nullptr when they did not load.
  template <EnumRuleType kType>
  const SettingClass<kType>* Of() const noexcept {
    return std::get<static_cast<std::size_t>(kType)>(typed_).get();
  }

 private:
  struct Limits {
    std::int32_t historyDataCount;
    std::int32_t liveInterval;
  };
  const LoadedSettings typed_;
  // One entry a rule type, then one for any type that is none, then one for -1.
  std::array<Limits, kRuleTypeCount + 2> limits_;
};

/// The door through which rules see their domain's present settings; empty when the
/// domain has no data manager. It costs no lock while no domain is loaded or reloaded.
/// Any thread. (The storage of domains stands behind it.)
std::shared_ptr<const RuleSettings> DomainRuleSettings(const std::string& domainId);

}  // namespace keelstone

#endif  // KEELSTONE_SETTINGS_RULE_SETTINGS_H
