#ifndef KEELSTONE_ENGINE_EVALUATION_SETTINGS_H
#define KEELSTONE_ENGINE_EVALUATION_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "keelstone/data_manager.h"
#include "settings/rule_settings.h"

namespace keelstone {

/// The settings that one evaluation works with from its first value to its last, taken when
/// it is made, those of the process when the first value asks: most values are only checked and
/// need none of them. Whoever needs a setting is handed this snapshot. One thread.
struct EvaluationSettings {
  /// Those of a domain, and those of the process; `manager` is nullptr for a domain that
  /// cannot be had.
  explicit EvaluationSettings(const KSDataManagerSql* manager);

  const std::shared_ptr<const RuleSettings> rules;  // never empty
  const bool areUnreadable;                         // the domain's are there, but not to be read
  const bool dynamicCalculation;                    // whether rules are learned at all
  // Seconds between the values that a variable without a rule keeps.
  std::int32_t IntervalTime() const;
  std::size_t StrValueLength() const;  // bytes; see Outcome

 private:
  mutable std::optional<std::int32_t> intervalTime_;
  mutable std::optional<std::size_t> strValueLength_;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_EVALUATION_SETTINGS_H
