#ifndef KEELSTONE_FINDINGS_H
#define KEELSTONE_FINDINGS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/domain_fault.h"
#include "keelstone/explanation.h"
#include "keelstone/export.h"
#include "keelstone/update_result.h"

namespace keelstone {

/// A value that was refused: which, and why.
struct RefusedVariable {
  std::string interfaceValue;
  std::string name;
  std::string reason;  // a clause for people: "it has no enabled definition"
};

/// What a run came to (Domain::Evaluate). Stays readable after the domain is closed. One thread
/// at a time; not in a child of fork().
///
/// Of a run that was evaluated with RunOptions::store off, nothing is kept until Store. Until
/// then, Discard, or the end of this object, the run has its unit (device, source, parameter):
/// other runs of the unit wait.
class KEELSTONE_EXPORT Findings {
 public:
  Findings() noexcept;  // of no run: empty
  Findings(Findings&&) noexcept;
  Findings& operator=(Findings&&) noexcept;
  ~Findings();

  /// Why nothing was evaluated (all is empty then), or why what was learned could not be stored.
  const DomainFault& fault() const noexcept { return fault_; }

  /// The rules that were learned or changed, the golden values that moved and the alerts, as
  /// records; its document is {"ruleItems":[…],"valueItems":[…],"alertItems":[…]}.
  const KSRuleUpdateResultData& results() const noexcept;
  /// One an alert, in their order, unless RunOptions::explain is off.
  const std::vector<KSAlertExplanation>& explanations() const noexcept;
  /// In the order of the values.
  const std::vector<RefusedVariable>& refused() const noexcept;

  std::uint64_t variables() const noexcept;  // values handed to the engine
  std::uint64_t repeated() const noexcept;   // values that were judged before, and not again
  bool isBlocked() const noexcept;           // the device is in a block period: nothing was learned
  bool isEngineOn() const noexcept;  // else the domain is switched off, nothing was evaluated

  /// The document of the results.
  std::string ToJsonString() const;
  /// The explanations as a JSON array, as `evaluate --explain` prints them.
  std::string ExplanationsToJsonString() const;

  /// Keeps what was learned, once: kState for a run that is stored, discarded or was not
  /// evaluated. It is on disk after the next flush; where the domain was closed meanwhile, at
  /// once. kMemory: nothing or not all of it is kept.
  DomainFault Store() noexcept;
  /// Drops what was learned; a run that is stored stays so. The results stay.
  void Discard() noexcept;

 private:
  friend class Domain;
  struct State;
  Findings(std::unique_ptr<State> state, DomainFault fault) noexcept;
  std::unique_ptr<State> state_;  // empty when nothing was evaluated
  DomainFault fault_;
};

}  // namespace keelstone

#endif  // KEELSTONE_FINDINGS_H
