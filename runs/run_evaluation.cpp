#include "runs/run_evaluation.h"

#include <algorithm>
#include <exception>
#include <new>

#include "platform/logger.h"
#include "platform/memory_faults.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Host";
constexpr const char* kFunction = "EvaluateRun";
constexpr const char* kSourceFile = "run_evaluation";

bool IsWithinLimits(const VarInfo& variable, const Domain& domain) {
  std::int64_t size = 0;
  std::int64_t limit = 0;
  if (variable.dataType == KSDataTable) {
    size = static_cast<std::int64_t>(variable.value["rows"].size());
    limit = domain.tableRowLimit;
  } else if (variable.dataType == KSDataString) {
    size = CountLines(variable.valueText);
    limit = domain.stringLineLimit;
  }
  if (size <= limit) return true;
  KS_LOG(kModule, kFunction, kSourceFile, kLogNotice,
         "Variable:%s has %lld rows or lines, more than the limit of %lld.",
         variable.variableName.c_str(), static_cast<long long>(size),
         static_cast<long long>(limit));
  return false;
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

void Evaluate(const ParsedRun& run, const Domain& domain, bool onDemand,
              std::unique_ptr<UnitData> data, bool explain, RunOutcome& outcome) {
  outcome.instance = std::make_unique<KSRuleInstance>(
      run.source, run.nodeId, run.device, run.nodePathSchema, run.structureId, run.param,
      run.domain, "", run.time, onDemand);
  KSRuleInstance& instance = *outcome.instance;
  if (explain) instance.SetExplain(true);
  outcome.results = instance.GetUpdateResultData();
  outcome.blocked = instance.IsInBlockTime();
  if (outcome.blocked) instance.SetOnlyUpdateKSValue();
  if (data) {
    instance.SetCacheData(std::move(data->rules));
    instance.SetHistoryData(std::move(data->histories));
  }
  instance.InitCacheData();
  instance.InitHistoryData();
  for (std::size_t i = 0; i < run.variables.size(); ++i) {
    const VarInfo& variable = run.variables[i];
    if (!IsWithinLimits(variable, domain)) {
      outcome.rejected.push_back(variable.variableName);
      continue;
    }
    if (!Process(instance, variable, outcome)) outcome.rejected.push_back(variable.variableName);
    if (!explain) continue;
    const EnumVerdict verdict = instance.GetLastVerdict();
    if (verdict != kVerdictNone) outcome.judged.push_back({i, verdict == kVerdictAlert});
  }
  outcome.explanations = instance.GetExplanations();
}

void RejectAll(const ParsedRun& run, RunOutcome& outcome) {
  outcome.rejected.clear();
  for (const VarInfo& variable : run.variables) outcome.rejected.push_back(variable.variableName);
}

/// Half a run is neither stored nor told.
void Forget(const ParsedRun& run, RunOutcome& outcome) noexcept {
  outcome.explanations.clear();
  outcome.judged.clear();
  outcome.instance.reset();
  outcome.mayHavePending = true;
  if (!outcome.lacksMemory) return;
  outcome.results.reset();
  outcome.variables = 0;
  KS_LOG(kModule, kFunction, kSourceFile, kLogError,
         "Device:%s, source:%s: memory ran short, the run is rejected.", run.device.c_str(),
         run.source.c_str());
  try {
    RejectAll(run, outcome);
  } catch (const std::bad_alloc&) {
    outcome.rejected.clear();
  }
}

}  // namespace

void RunOutcome::Store() noexcept {
  const std::uint64_t faults = MemoryFaultsHere();
  if (instance) instance->SerializeLocalDB();
  lacksMemory = lacksMemory || MemoryFaultsHere() != faults;
  instance.reset();
}

std::int64_t CountLines(std::string_view text) noexcept {
  const auto lineFeeds = std::count(text.begin(), text.end(), '\n');
  return lineFeeds + (text.empty() || text.back() == '\n' ? 0 : 1);
}

RunOutcome EvaluateRun(const ParsedRun& run, const Domain& domain, bool onDemand,
                       std::unique_ptr<UnitData> data, bool explain) noexcept {
  const std::uint64_t faults = MemoryFaultsHere();
  RunOutcome outcome;
  if (domain.usable && !domain.engineOn) return outcome;
  try {
    if (!domain.usable) {
      RejectAll(run, outcome);
      return outcome;
    }
    Evaluate(run, domain, onDemand, std::move(data), explain, outcome);
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
