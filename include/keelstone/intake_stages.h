#ifndef KEELSTONE_INTAKE_STAGES_H
#define KEELSTONE_INTAKE_STAGES_H

#include <cstdint>

namespace keelstone {

/// What is done to a run before the engine sees its values; each stage can be switched off.
struct IntakeStages {
  static constexpr std::int64_t kDay = 86400;  // s

  bool judgeRepeated = false;    // values that were judged before are judged again
  bool allowDuplicates = false;  // a run may hold two values of one variable and interface
  /// Seconds that the time of a run may lie ahead of the clock; 0: times are taken as they
  /// come.
  std::int64_t maxAhead = kDay;

  /// Hands every value to the engine as it comes.
  static constexpr IntakeStages Off() { return {true, true, 0}; }
  /// Whether what was judged before plays a part.
  constexpr bool LooksBack() const { return !judgeRepeated || maxAhead > 0; }
  /// Whether any stage is on. Only then are reasons told: without them the output is the
  /// engine's alone.
  constexpr bool IsAnyOn() const { return !judgeRepeated || !allowDuplicates || maxAhead > 0; }
};

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_STAGES_H
