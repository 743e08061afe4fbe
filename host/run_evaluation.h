#ifndef KEELSTONE_HOST_RUN_EVALUATION_H
#define KEELSTONE_HOST_RUN_EVALUATION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/domain_registry.h"
#include "host/run_line.h"
#include "host/unit_data.h"
#include "results/explanation.h"
#include "results/keelstoneupdateruledata.h"

namespace keelstone::host {

/// A value that a rule has judged.
struct JudgedValue {
  std::size_t variable = 0;  // its place among the run's variables
  bool isAlert = false;
};

/// What the engine made of one run.
struct RunOutcome {
  bool blocked = false;
  std::uint64_t variables = 0;        // values handed to the engine
  std::vector<std::string> rejected;  // names, in input order
  bool mayHavePending = false;        // rows may have been handed to the write-behind cache
  std::shared_ptr<KSRuleUpdateResultData> results;  // empty when nothing was evaluated
  // Where explanations were asked for: one an alert, and what was judged, both in order.
  std::vector<KSAlertExplanation> explanations;
  std::vector<JudgedValue> judged;
};

/// Lines of a text: a line feed ends a line and does not open one.
std::int64_t CountLines(std::string_view text) noexcept;

/// Hands one run to the engine. A value over the domain's limits is rejected here; what
/// the engine cannot take is rejected, whatever goes wrong. Any thread, but one run of a
/// unit at a time. `data` is what was loaded of the unit ahead; without it the run loads
/// for itself. `explain`: whether alerts are to be explained.
RunOutcome EvaluateRun(const ParsedRun& run, const Domain& domain, bool onDemand,
                       std::unique_ptr<UnitData> data = nullptr, bool explain = false) noexcept;

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_RUN_EVALUATION_H
