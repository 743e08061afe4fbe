#include "keelstone/run_evaluation.h"

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "intake/run_screen.h"
#include "keelstone/logger.h"
#include "keelstone/memory_faults.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Host";
constexpr const char* kFunction = "EvaluateRun";
constexpr const char* kSourceFile = "run_evaluation";

/// Why a value is too large for the domain; nothing when it is not.
std::optional<std::string> LimitFault(const VarInfo& variable, const DomainSnapshot& domain) {
  std::int64_t size = 0;
  std::int64_t limit = 0;
  const char* told = "";
  if (variable.dataType == KSDataTable) {
    size = static_cast<std::int64_t>(variable.value["rows"].size());
    limit = domain.tableRowLimit;
    told = " rows, more than KSTableCountLimit (";
  } else if (variable.dataType == KSDataString) {
    size = CountLines(variable.valueText);
    limit = domain.stringLineLimit;
    told = " lines, more than KSStrRowCountLimit (";
  }
  if (size <= limit) return std::nullopt;
  KS_LOG(kModule, kFunction, kSourceFile, kLogNotice,
         "Variable:%s has %lld rows or lines, more than the limit of %lld.",
         variable.variableName.c_str(), static_cast<long long>(size),
         static_cast<long long>(limit));
  return "it has " + std::to_string(size) + told + std::to_string(limit) + ")";
}

std::string ReasonOf(EnumRefusal refusal, const VarInfo& variable) {
  switch (refusal) {
    case kRefusalUnreadable:
      return "what is stored of the device could not be read";
    case kRefusalUndefined:
      return "it has no enabled definition";
    case kRefusalType:
      return "its type code " + std::to_string(variable.variableType) +
             " is not that of its definition";
    case kRefusalNoValue:
      return "its text gives no value of its type";
    default:
      return "its evaluation failed, the log says why";
  }
}

/// One value; false when it is refused.
bool Process(KSRuleInstance& instance, const VarInfo& variable, RunOutcome& outcome) {
  ++outcome.variables;
  try {
    if (!instance.ProcessVariable(variable)) return false;
    outcome.mayHavePending = true;
    return true;
  } catch (const std::bad_alloc&) {
    throw;  // not of this value alone
  } catch (const std::exception& error) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "Variable:%s was not evaluated: %s.",
           variable.variableName.c_str(), error.what());
  }
  outcome.mayHavePending = true;
  return false;
}

/// Why a value is refused before the engine sees it.
std::optional<std::string> FaultOf(const ParsedRun& run, const DomainSnapshot& domain,
                                   const RunScreen& screen, std::size_t variable) {
  if (const auto first = screen.DuplicateOf(variable)) {
    return "variables[" + std::to_string(run.PlaceOf(variable)) +
           "] has the name and the interface of variables[" + std::to_string(run.PlaceOf(*first)) +
           "]";
  }
  return LimitFault(run.variables[variable], domain);
}

void EvaluateValue(const ParsedRun& run, std::size_t i, RunScreen& screen, KSRuleInstance& instance,
                   bool explain, RunOutcome& outcome) {
  const VarInfo& variable = run.variables[i];
  if (screen.IsRepeated(i)) {
    ++outcome.repeated;
    return;
  }
  if (Process(instance, variable, outcome)) {
    screen.NoteJudged();
  } else {
    const EnumRefusal refusal = instance.GetLastRefusal();
    outcome.Refuse(run, i, ReasonOf(refusal, variable));
    outcome.refused.back().isUndefined = refusal == kRefusalUndefined;
  }
  if (!explain) return;
  const EnumVerdict verdict = instance.GetLastVerdict();
  if (verdict != kVerdictNone) outcome.judged.push_back({i, verdict == kVerdictAlert});
}

void Evaluate(const ParsedRun& run, const DomainSnapshot& domain, const RunRequest& request,
              std::unique_ptr<UnitData> data, RunOutcome& outcome) {
  outcome.instance = std::make_unique<KSRuleInstance>(
      run.source, run.nodeId, run.device, run.nodePathSchema, run.structureId, run.param,
      run.domain, "", EvaluationTime{run.time}, request.onDemand);
  KSRuleInstance& instance = *outcome.instance;
  if (request.explain) instance.SetExplain(true);
  outcome.results = instance.GetUpdateResultData();
  outcome.blocked = instance.IsInBlockTime();
  if (outcome.blocked) instance.SetOnlyUpdateKSValue();
  auto unit = request.store != nullptr
                  ? request.store->Take(run.domain, {run.device, run.source, run.param})
                  : nullptr;
  outcome.isResident = unit != nullptr;
  if (unit) {
    instance.Attach(std::move(unit));
  } else if (data) {
    instance.SetCacheData(std::move(data->rules));
    instance.SetHistoryData(std::move(data->histories));
  }
  instance.InitCacheData();
  instance.InitHistoryData();
  RunScreen screen(run, request.stages, request.judged, instance, !request.onDemand,
                   !outcome.blocked);
  for (std::size_t i = 0; i < run.variables.size(); ++i) {
    if (auto fault = FaultOf(run, domain, screen, i)) {
      outcome.Refuse(run, i, std::move(*fault));
    } else {
      EvaluateValue(run, i, screen, instance, request.explain, outcome);
    }
  }
  outcome.place = request.judged;
  outcome.noted = screen.TakeJudged();
  outcome.explanations = instance.GetExplanations();
}

void RefuseAll(const ParsedRun& run, const std::string& reason, RunOutcome& outcome) {
  outcome.results = std::make_shared<KSRuleUpdateResultData>();
  for (std::size_t i = 0; i < run.variables.size(); ++i) outcome.Refuse(run, i, reason);
}

/// Half a run is neither stored nor told.
void Forget(const ParsedRun& run, RunOutcome& outcome) noexcept {
  outcome.explanations.clear();
  outcome.judged.clear();
  outcome.noted.clear();
  outcome.instance.reset();
  outcome.mayHavePending = true;
  if (!outcome.lacksMemory) return;
  outcome.variables = 0;
  KS_LOG(kModule, kFunction, kSourceFile, kLogError,
         "Device:%s, source:%s: memory ran short, the run is rejected.", run.device.c_str(),
         run.source.c_str());
  try {
    outcome.rejected.clear();
    outcome.refused.clear();
    RefuseAll(run, "memory ran short", outcome);
  } catch (const std::bad_alloc&) {
    outcome.rejected.clear();
    outcome.refused.clear();
  }
  outcome.results.reset();
}

}  // namespace

void RunOutcome::Store() noexcept {
  const std::uint64_t faults = MemoryFaultsHere();
  if (instance) instance->SerializeLocalDB();
  lacksMemory = lacksMemory || MemoryFaultsHere() != faults;
  instance.reset();
  try {
    if (place.unit) place.unit->Note(noted, place.position);
  } catch (const std::exception&) {
    // What memory does not hold, the history tells.
  }
  noted.clear();
}

void RunOutcome::Refuse(const ParsedRun& run, std::size_t variable, std::string reason) {
  rejected.push_back(run.variables[variable].variableName);
  refused.push_back({variable, false, std::move(reason)});
}

std::int64_t CountLines(std::string_view text) noexcept {
  const auto lineFeeds = std::count(text.begin(), text.end(), '\n');
  return lineFeeds + (text.empty() || text.back() == '\n' ? 0 : 1);
}

RunOutcome EvaluateRun(const ParsedRun& run, const DomainSnapshot& domain,
                       const RunRequest& request, std::unique_ptr<UnitData> data) noexcept {
  const std::uint64_t faults = MemoryFaultsHere();
  RunOutcome outcome;
  if (domain.usable && !domain.engineOn) return outcome;
  try {
    if (!domain.usable) {
      RefuseAll(run, "a database of its domain cannot be used", outcome);
      outcome.results.reset();
    } else if (const auto fault = TimeFault(run.time, request.stages)) {
      RefuseAll(run, *fault, outcome);
    } else {
      Evaluate(run, domain, request, std::move(data), outcome);
    }
  } catch (const std::exception& error) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "Device:%s, source:%s: %s.",
           run.device.c_str(), run.source.c_str(), error.what());
    outcome.lacksMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    Forget(run, outcome);
  }
  // What was caught on the way may have left a value half judged.
  if (MemoryFaultsHere() != faults && !outcome.lacksMemory) {
    outcome.lacksMemory = true;
    Forget(run, outcome);
  }
  return outcome;
}

}  // namespace keelstone
