#ifndef KEELSTONE_HOST_DOMAIN_SESSION_H
#define KEELSTONE_HOST_DOMAIN_SESSION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/defined_variables.h"
#include "host/root_use.h"
#include "host/unit_turns.h"
#include "keelstone/domain.h"
#include "keelstone/domain_snapshot.h"
#include "keelstone/judged_values.h"
#include "keelstone/mutex.h"
#include "keelstone/run_evaluation.h"

namespace keelstone {

/// One opening of a domain, shared by the Domain and the runs that are not stored. What fails is
/// thrown, a HostFailure where it can be said. Any thread, within the ForkGate.
class DomainSession {
 public:
  explicit DomainSession(const DomainOptions& options);

  /// A run that was evaluated, with the right to its unit until it is stored or dropped.
  struct Evaluated {
    UnitTurns::Turn turn;  // given back after the outcome has let go of the unit
    RunOutcome outcome;
    bool isEngineOn = true;
  };

  const std::string& id() const noexcept { return id_; }
  void SetEnroll(bool on) noexcept { enrolls_.store(on); }
  bool enrolls() const noexcept { return enrolls_.load(); }
  void SetStages(const IntakeStages& stages);
  IntakeStages stages() const;

  void Define(const std::string& source, const VarInfo& variable);
  Evaluated Evaluate(const ParsedRun& run, const RunOptions& how);
  /// After a run was stored.
  void NoteStored();
  void Flush();
  void Reload();
  void Close();
  /// Closes without a flush.
  void Release();

  /// Throws when the domain is closed or a parent's.
  void RequireOpen() const;
  bool IsInherited() const noexcept { return use_.IsInherited(); }
  bool IsOpen() const noexcept { return !IsInherited() && !isClosed_.load(); }

 private:
  void RequireOwn() const;
  void Define(const std::vector<RuleDefinitionData>& definitions);
  RunOutcome EvaluateDefined(const ParsedRun& run, const DomainSnapshot& domain,
                             const RunRequest& request, bool enrolls);
  void ReadAnew();
  void GiveUp();

  RootUse use_;
  const std::string id_;
  std::shared_ptr<KSDataManagerSql> data_;
  std::atomic<bool> enrolls_;
  std::atomic<bool> isClosed_{false};
  std::atomic<std::uint64_t> toldLosses_;  // of the write-behind cache, or older
  mutable Mutex mutex_;                    // guards the stages; innermost
  IntakeStages stages_ KS_GUARDED_BY(mutex_);
  JudgedValues judged_;
  DefinedVariables defined_;
};

}  // namespace keelstone

#endif  // KEELSTONE_HOST_DOMAIN_SESSION_H
