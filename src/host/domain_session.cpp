#include "host/domain_session.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "host/call_guard.h"
#include "host/shared_store.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/first_failure.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/setting_paths.h"
#include "keelstone/table_base.h"
#include "keelstone/text_escape.h"
#include "keelstone/write_behind.h"

namespace keelstone {

namespace {

using Kind = DomainFault::Kind;

std::string Named(const std::string& domainId) { return "domain \"" + Printable(domainId) + "\""; }

JsonValue SettingsOver(const std::string& settings) {
  JsonValue merged = DefaultGeneralSettings();
  if (settings.empty()) return merged;
  JsonValue top;
  JsonParseError error;
  const JsonReadOptions options{.allowComments = true, .requireUtf8 = true};
  if (!JsonReader::Parse(settings, top, &error, options)) {
    throw HostFailure(Kind::kInput, "settings: not JSON: " + Printable(error.message) +
                                        " at byte " + std::to_string(error.offset + 1));
  }
  const std::string fault = AcceptGeneralSettings(top);
  if (!fault.empty()) throw HostFailure(Kind::kInput, "settings: " + Printable(fault));
  LayOver(merged, top);
  return merged;
}

void PrepareFiles(const DomainOptions& options) {
  if (options.create) {
    const std::string fault = MakeDomain(options.id, SettingsOver(options.settings));
    if (!fault.empty()) {
      throw HostFailure(Kind::kDatabase,
                        Named(options.id) + " cannot be made: " + Printable(fault));
    }
  }
  const DomainCheck check = CheckDomain(options.id, true);
  if (check.condition == DomainCheck::Condition::kComplete) return;
  throw HostFailure(Kind::kDatabase,
                    Named(options.id) + " cannot be used: " + Printable(check.detail));
}

}  // namespace

DomainSession::DomainSession(const DomainOptions& options)
    : use_(options.root),
      id_(options.id),
      enrolls_(options.enroll),
      toldLosses_(DBWriteWrapper::Instance()->LostBatches()),
      stages_(options.stages) {
  RequireSameRoot(id_);
  PrepareFiles(options);
  const bool isInherited = NoteRootOf(id_);
  data_ = KSDomainDataManager::Instance()->GetKSDataManager(id_);
  if (isInherited) ReadAnew();  // the parent goes on to change the domain
  if (options.memory) SharedStore::Instance().SetBudget(*options.memory);
}

void DomainSession::ReadAnew() {
  data_->InvalidateKSGlobalSettingCaches();
  data_->InvalidateKSVariableRuleCaches();
  data_->InvalidateKSBlockSettingCaches();
}

void DomainSession::SetStages(const IntakeStages& stages) {
  const MutexLock lock(mutex_);
  stages_ = stages;
}

IntakeStages DomainSession::stages() const {
  const MutexLock lock(mutex_);
  return stages_;
}

void DomainSession::RequireOwn() const {
  if (!IsInherited()) return;
  throw HostFailure(Kind::kForked, Named(id_) + " was opened before fork()");
}

void DomainSession::RequireOpen() const {
  RequireOwn();
  if (isClosed_.load()) throw HostFailure(Kind::kState, Named(id_) + " is closed");
}

void DomainSession::Define(const std::vector<RuleDefinitionData>& definitions) {
  if (definitions.empty() || data_->AddRuleDefinitions(definitions)) return;
  throw HostFailure(Kind::kWrite,
                    "the variable rules of " + Named(id_) + " cannot be written; the log says why");
}

void DomainSession::Define(const std::string& source, const VarInfo& variable) {
  RequireOpen();
  Define({NewDefinition(source, variable)});
}

/// Defines what is not defined yet, then evaluates. A definition that is gone since it was seen is
/// made again, and the run evaluated anew: it has left no trace.
RunOutcome DomainSession::EvaluateDefined(const ParsedRun& run, const DomainSnapshot& domain,
                                          const RunRequest& request, bool enrolls) {
  if (enrolls && !defined_.KnowsAll(run)) {
    Define(MissingDefinitions(run, *data_));
    defined_.Note(run);
  }
  RunOutcome outcome = EvaluateRun(run, domain, request);
  if (!enrolls || std::none_of(outcome.refused.begin(), outcome.refused.end(),
                               [](const RefusedValue& value) { return value.isUndefined; })) {
    return outcome;
  }
  const auto missing = MissingDefinitions(run, *data_);
  if (missing.empty()) return outcome;  // they are switched off
  outcome = {};                         // lets go of the unit
  Define(missing);
  return EvaluateRun(run, domain, request);
}

DomainSession::Evaluated DomainSession::Evaluate(const ParsedRun& run, const RunOptions& how) {
  RequireOpen();
  if (run.domain != id_) {
    throw HostFailure(Kind::kInput, "domain: is not the one that the run is started in");
  }
  Evaluated done;
  std::string unit;
  AssignUnitKey(unit, run);
  done.turn = UnitTurns::Instance().Take(unit);
  const DomainSnapshot domain = DomainSnapshot::Of(id_);
  RunRequest request;
  request.onDemand = run.onDemand;
  request.explain = how.explain;
  request.stages = how.stages ? *how.stages : stages();
  request.judged = judged_.Of(run);
  request.store = SharedStore::Instance().ForRun();
  // Without a store the values of the run before are found on disk only.
  DBWriteWrapper& cache = *DBWriteWrapper::Instance();
  if (request.store == nullptr && domain.engineOn && cache.HasPendingRows(id_, run.device)) {
    cache.WriteDomain(id_);
  }
  done.outcome = EvaluateDefined(run, domain, request, how.enroll.value_or(enrolls()));
  if (done.outcome.lacksMemory) throw std::bad_alloc();
  done.isEngineOn = domain.engineOn;
  if (!done.outcome.results) {
    if (domain.engineOn) {
      throw HostFailure(Kind::kInternal, "nothing was evaluated; the log says why");
    }
    done.outcome.results = std::make_shared<KSRuleUpdateResultData>();
  }
  return done;
}

void DomainSession::NoteStored() {
  if (isClosed_.load()) Flush();
}

// A write that failed before and of which the rows are kept has been made good now, or has failed
// again. What the write-behind cache has dropped is lost, whoever flushed.
void DomainSession::Flush() {
  DBWriteWrapper& cache = *DBWriteWrapper::Instance();
  const std::uint64_t before = GetFailedWriteCount();
  cache.WriteDomain(id_);
  const std::uint64_t failed = GetFailedWriteCount() - before;
  const std::uint64_t losses = cache.LostBatches();
  const bool isLost = toldLosses_.exchange(losses) != losses;
  if (failed == 0 && !isLost) return;
  throw HostFailure(Kind::kWrite,
                    (failed > 0 ? std::to_string(failed) + " writes failed"
                                : std::string("earlier writes have failed")) +
                        "; the log says why. First of all: " + Printable(FirstFailure()));
}

void DomainSession::Reload() {
  RequireOpen();
  judged_.Clear();
  defined_.Clear();
  ReadAnew();
}

void DomainSession::Close() {
  RequireOwn();
  if (isClosed_.exchange(true)) return;  // first of all: runs stored from here on are written
  try {
    Flush();
  } catch (...) {
    isClosed_.store(false);
    throw;
  }
  GiveUp();
}

void DomainSession::Release() {
  RequireOwn();
  if (!isClosed_.exchange(true)) GiveUp();
}

void DomainSession::GiveUp() {
  use_.End();
  if (!RootUse::IsAnyLeft()) SharedStore::Instance().LetGo();
}

}  // namespace keelstone
