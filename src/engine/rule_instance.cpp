#include "keelstone/rule_instance.h"

#include <exception>
#include <new>
#include <utility>

#include "engine/evaluation.h"
#include "keelstone/logger.h"
#include "keelstone/memory_faults.h"

namespace keelstone {

namespace {

// Nothing that an evaluation throws (memory that cannot be had, say) reaches the host.
template <class Step>
bool Guarded(const char* function, Step step) {
  try {
    return step();
  } catch (const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) CountMemoryFault();
    KS_LOG("FS_Keelstone", function, "ksruleinstance", kLogError, "c++ exception in rw:%s.",
           error.what());
  }
  return false;
}

}  // namespace

KSRuleInstance::KSRuleInstance(const std::string& variableSource, const std::string& nodeId,
                               const std::string& deviceName, const std::string& nodePathSchema,
                               const std::string& structureId, const std::string& variableParam,
                               const std::string& domainId, const std::string& reserved,
                               std::int32_t evaluationTime, bool onDemandTask)
    : KSRuleInstance(variableSource, nodeId, deviceName, nodePathSchema, structureId, variableParam,
                     domainId, reserved, EvaluationTime{evaluationTime}, onDemandTask) {}

KSRuleInstance::KSRuleInstance(const std::string& variableSource, const std::string& nodeId,
                               const std::string& deviceName, const std::string& nodePathSchema,
                               const std::string& structureId, const std::string& variableParam,
                               const std::string& domainId, const std::string& reserved,
                               EvaluationTime evaluationTime, bool onDemandTask)
    : evaluation_(std::make_unique<Evaluation>(
          Subject{variableSource, nodeId, deviceName, nodePathSchema, structureId, variableParam,
                  domainId, reserved, evaluationTime.seconds},
          onDemandTask)) {}

KSRuleInstance::~KSRuleInstance() = default;

bool KSRuleInstance::IsInBlockTime() {
  return Guarded("KSRuleInstance::IsInBlockTime",
                 [this] { return evaluation_->lookUp().IsInBlockTime(); });
}

bool KSRuleInstance::IsDefineRule() { return evaluation_->lookUp().IsDefineRule(); }

bool KSRuleInstance::InitCacheData() {
  return Guarded("KSRuleInstance::InitCacheData",
                 [this] { return evaluation_->lookUp().LoadRules(); });
}

bool KSRuleInstance::InitHistoryData() {
  return Guarded("KSRuleInstance::InitHistoryData",
                 [this] { return evaluation_->lookUp().LoadHistories(); });
}

void KSRuleInstance::SetCacheData(DevParserRule rules) {
  evaluation_->lookUp().SetRules(std::move(rules));
}

void KSRuleInstance::SetHistoryData(DevParserHistory histories) {
  evaluation_->lookUp().SetHistories(std::move(histories));
}

void KSRuleInstance::Attach(std::shared_ptr<ResidentUnit> unit) {
  evaluation_->lookUp().Attach(std::move(unit));
  evaluation_->outcome().WorkInMemory();
}

bool KSRuleInstance::IsVarDefineRule(const std::string& variableName) {
  return evaluation_->lookUp().IsVarDefineRule(variableName);
}

bool KSRuleInstance::ProcessVariable(const VarInfo& variable) {
  return Guarded("KSRuleInstance::ProcessVariable",
                 [&] { return evaluation_->ProcessVariable(variable); });
}

std::shared_ptr<KSRuleUpdateResultData> KSRuleInstance::GetUpdateResultData() const {
  return evaluation_->outcome().results();
}

void KSRuleInstance::SerializeLocalDB() {
  Guarded("KSRuleInstance::SerializeLocalDB", [this] {
    evaluation_->SerializeLocalDB();
    return true;
  });
}

void KSRuleInstance::SetOnlyUpdateKSValue() { evaluation_->SetOnlyUpdateKSValue(); }

bool KSRuleInstance::IsOndemandTask() const { return evaluation_->IsOndemandTask(); }

void KSRuleInstance::SetExplain(bool on) { evaluation_->outcome().SetExplain(on); }

const std::vector<KSAlertExplanation>& KSRuleInstance::GetExplanations() const {
  static const std::vector<KSAlertExplanation> kNone;
  const Explainer* const explainer = evaluation_->outcome().explainer();
  return explainer == nullptr ? kNone : explainer->explanations();
}

EnumVerdict KSRuleInstance::GetLastVerdict() const {
  const Explainer* const explainer = evaluation_->outcome().explainer();
  return explainer == nullptr ? kVerdictNone : explainer->verdict();
}

EnumRefusal KSRuleInstance::GetLastRefusal() const { return evaluation_->refusal(); }

const std::string* KSRuleInstance::GetLoadedHistory(const std::string& interfaceValue,
                                                    const std::string& variableName) const {
  return evaluation_->lookUp().LoadedHistory(interfaceValue, variableName);
}

std::optional<std::int64_t> KSRuleInstance::GuessNewestTime(const std::string& interfaceValue,
                                                            const std::string& variableName) const {
  return evaluation_->lookUp().GuessNewestTime(interfaceValue, variableName);
}

void KSRuleInstance::ReplaceHistory(const std::string& interfaceValue,
                                    const std::string& variableName, std::string history) {
  Guarded("KSRuleInstance::ReplaceHistory", [&] {
    evaluation_->ReplaceHistory(interfaceValue, variableName, std::move(history));
    return true;
  });
}

}  // namespace keelstone
