#ifndef KEELSTONE_INTAKE_RUN_SCREEN_H
#define KEELSTONE_INTAKE_RUN_SCREEN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "intake/stored_history.h"
#include "keelstone/intake_stages.h"
#include "keelstone/judged_values.h"
#include "keelstone/rule_instance.h"
#include "keelstone/run_line.h"

namespace keelstone {

/// Why the time of a run is none that a device can have; nothing when it can.
std::optional<std::string> TimeFault(std::int64_t time, const IntakeStages& stages);

/// Finds the values of a run that are not for the engine: second values of one variable, and
/// those that were judged before. One thread, one run; what is handed in must outlive it.
class RunScreen {
 public:
  /// `isLasting`: whether the run is more than a check on demand, which looks back at nothing
  /// and leaves no trace. `mayLearn`: whether a history that is ahead of the clock may be
  /// repaired.
  RunScreen(const ParsedRun& run, const IntakeStages& stages, const JudgedValues::Place& place,
            KSRuleInstance& instance, bool isLasting, bool mayLearn);

  /// The earlier value of the run with the same name and interface, if that refuses this one.
  std::optional<std::size_t> DuplicateOf(std::size_t variable) const;
  /// Whether the value was judged before. Repairs a history that lies ahead of the clock
  /// when enough has come to replace it.
  bool IsRepeated(std::size_t variable);
  /// The value that IsRepeated was asked about last was judged.
  void NoteJudged();
  /// What was judged, for the memory of the unit.
  std::vector<UnitMemory::Judged> TakeJudged() { return std::move(judged_); }

 private:
  void FindDuplicates();
  std::optional<NewestValue> NewestOf(const VarInfo& variable,
                                      const UnitMemory::Known& known) const;
  bool IsBehind(const NewestValue& newest) const;
  bool IsBehindSound(const VarInfo& variable, const UnitMemory::Known& known);
  void Repair(const VarInfo& variable, const StoredHistory& stored, std::size_t ahead);

  const ParsedRun& run_;
  const IntakeStages& stages_;
  const JudgedValues::Place& place_;
  KSRuleInstance& instance_;
  const bool looksBack_;
  const bool mayLearn_;
  const std::int64_t plausible_;  // the latest time that a device may plausibly show now
  std::vector<std::uint64_t> keys_;
  std::vector<UnitMemory::Known> known_;
  std::vector<std::uint32_t> firsts_;  // of a second value its first one; empty: all differ
  UnitMemory::Judged candidate_;       // the value that is looked at
  std::vector<UnitMemory::Judged> judged_;
};

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_RUN_SCREEN_H
