#ifndef KEELSTONE_ENGINE_EVALUATION_SETTINGS_H
#define KEELSTONE_ENGINE_EVALUATION_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "keelstone/data_manager.h"
#include "settings/rule_settings.h"

namespace keelstone {

/// The settings that one evaluation works with from its first value to its last, taken when
/// it is made. Whoever needs one of them is handed this snapshot. It does not change; any
/// thread.
struct EvaluationSettings {
  /// Those of a domain, and those of the process; `manager` is nullptr for a domain that
  /// cannot be had.
  explicit EvaluationSettings(const KSDataManagerSql* manager);

  const std::shared_ptr<const RuleSettings> rules;  // never empty
  const bool areUnreadable;                         // the domain's are there, but not to be read
  const bool dynamicCalculation;                    // whether rules are learned at all
  const std::int32_t intervalTime;   // s between the values that a variable without a rule keeps
  const std::size_t strValueLength;  // bytes; see Outcome
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_EVALUATION_SETTINGS_H
