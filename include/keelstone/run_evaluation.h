#ifndef KEELSTONE_RUN_EVALUATION_H
#define KEELSTONE_RUN_EVALUATION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/domain_snapshot.h"
#include "keelstone/explanation.h"
#include "keelstone/export.h"
#include "keelstone/intake_stages.h"
#include "keelstone/judged_values.h"
#include "keelstone/resident_store.h"
#include "keelstone/rule_instance.h"
#include "keelstone/run_line.h"
#include "keelstone/unit_data.h"
#include "keelstone/update_result.h"

namespace keelstone {

/// A value that a rule has judged.
struct KEELSTONE_EXPORT JudgedValue {
  std::size_t variable = 0;  // its place among the run's variables
  bool isAlert = false;
};

/// A value that was refused, by the engine or before it.
struct KEELSTONE_EXPORT RefusedValue {
  std::size_t variable = 0;  // its place among the run's variables
  bool isUndefined = false;  // for want of a definition
  std::string reason;        // a clause in printable characters
};

/// How a run is to be evaluated.
struct KEELSTONE_EXPORT RunRequest {
  bool onDemand = false;  // check, and learn nothing
  bool explain = false;   // alerts are explained
  IntakeStages stages = IntakeStages::Off();
  JudgedValues::Place judged;      // what was judged before; without it the histories alone count
  ResidentStore* store = nullptr;  // keeps units in memory; nullptr: the run loads what it needs
};

/// What the engine made of one run.
struct KEELSTONE_EXPORT RunOutcome {
  bool blocked = false;
  std::uint64_t variables = 0;        // values handed to the engine
  std::uint64_t repeated = 0;         // values that were judged before
  std::vector<std::string> rejected;  // names, in input order
  std::vector<RefusedValue> refused;  // the same values with their reasons
  // All values are rejected, and nothing is stored; after Store: not all of it is.
  bool lacksMemory = false;
  bool mayHavePending = false;                      // there may be rows for the write-behind cache
  bool isResident = false;                          // a store keeps the rows; none are pending
  std::shared_ptr<KSRuleUpdateResultData> results;  // empty when nothing was evaluated
  // Where explanations were asked for: one an alert, and what was judged, both in order.
  std::vector<KSAlertExplanation> explanations;
  std::vector<JudgedValue> judged;
  std::unique_ptr<KSRuleInstance> instance;  // what Store hands over; empty afterwards
  JudgedValues::Place place;                 // where Store notes what was judged
  std::vector<UnitMemory::Judged> noted;

  /// Hands what was learned to the write-behind cache, and what was judged to the memory of
  /// the unit. Without it the run leaves no trace.
  void Store() noexcept;
  void Refuse(const ParsedRun& run, std::size_t variable, std::string reason);
};

/// Lines of a text: a line feed ends a line and does not open one.
KEELSTONE_EXPORT std::int64_t CountLines(std::string_view text) noexcept;

/// Hands one run to the engine; what it learns is handed on by the outcome's Store. A value
/// over the domain's limits or refused by a stage is rejected here; what the engine cannot
/// take is rejected, whatever goes wrong. When memory runs short the run as a whole is rejected.
/// Any thread, but one run of a unit at a time. `data` is what was loaded of the unit ahead;
/// without it, and where a store has the unit, the run loads for itself.
KEELSTONE_EXPORT RunOutcome EvaluateRun(const ParsedRun& run, const DomainSnapshot& domain,
                                        const RunRequest& request,
                                        std::unique_ptr<UnitData> data = nullptr) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_RUN_EVALUATION_H
