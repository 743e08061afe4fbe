#ifndef KEELSTONE_ENGINE_SHORT_CHECK_H
#define KEELSTONE_ENGINE_SHORT_CHECK_H

#include <cstdint>
#include <string>

#include "engine/look_up.h"
#include "engine/typed_value.h"
#include "keelstone/rule_records.h"
#include "settings/rule_settings.h"

namespace keelstone {

/// The second step of a value's way: a value whose rule is not due to be learned anew only
/// needs the rule's parameter and the time of the newest value. Where all texts are as the
/// library writes them, writing back what was read changes nothing, and no rule has to be
/// made. It decides nothing, and changes nothing, for whatever else there is: the long way is
/// right for every value.
///
/// It reads the record under its lock where others may hold it, and lets go of it before it
/// answers. One thread.
struct ShortCheck {
  enum Answer : std::uint8_t { kOpen, kFits, kBreaks };

  /// What it looks at besides what was found and the value itself.
  struct Terms {
    std::int64_t time;  // of the value, seconds since the epoch
    bool mayLearn;      // whether a learned rule may be learned anew
    const RuleSettings& settings;
  };

  Answer answer = kOpen;
  std::int32_t ruleType = kRuleTypeNone;  // of the rule that is broken
  std::string ruleParam;

  /// A source that keeps rules as objects asks them instead of their parameter texts, and
  /// knows the newest time; the conditions of `found` stay.
  static ShortCheck Of(const VarInfo& variable, const TypedValue& value, const Found& found,
                       const Terms& terms);
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_SHORT_CHECK_H
