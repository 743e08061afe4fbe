#include "engine/evaluation.h"

#include <utility>

#include "engine/judgement.h"
#include "engine/short_check.h"
#include "engine/variable_values.h"
#include "keelstone/algorithm_manager.h"
#include "keelstone/logger.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kSourceFile = "ksruleinstance";
constexpr const char* kProcessVariable = "KSRuleInstance::ProcessVariable";

}  // namespace

KSRuleInstance::Evaluation::Evaluation(Subject subject, bool onDemandTask)
    : subject_(std::move(subject)),
      onDemandTask_(onDemandTask),
      lookUp_(subject_),
      settings_(lookUp_.manager()),
      outcome_(subject_, settings_) {}

bool KSRuleInstance::Evaluation::ProcessVariable(const VarInfo& variable) {
  outcome_.Begin();
  refusal_ = kRefusalFailure;  // should it throw
  const bool isTaken = TakeValue(variable);
  if (isTaken) refusal_ = kRefusalNone;
  return isTaken;
}

void KSRuleInstance::Evaluation::SerializeLocalDB() {
  outcome_.CollectReplaced(lookUp_);
  if (lookUp_.IsAttached()) return outcome_.StoreIn(lookUp_);
  if (outcome_.HasRows()) lookUp_.NoteHandedOver();
  outcome_.HandOver();
}

void KSRuleInstance::Evaluation::ReplaceHistory(const std::string& interfaceValue,
                                                const std::string& variableName,
                                                std::string history) {
  lookUp_.ReplaceHistory(interfaceValue, variableName, std::move(history));
  outcome_.NoteReplaced(interfaceValue, variableName);
}

bool KSRuleInstance::Evaluation::TakeValue(const VarInfo& variable) {
  if (settings_.areUnreadable || lookUp_.isUnreadable()) return RefuseUnreadable(variable);
  Found found = lookUp_.Find(variable);
  const TypedValue value(variable);
  if (TryCheckOnly(variable, value, found)) return true;
  TakenDefinition definition;
  if (!lookUp_.Take(variable, found, definition)) return RefuseUndefined(variable);
  const bool isLearned = definition.own->ruleGenerateType == kRuleLearned;
  if (isLearned && lookUp_.IsFiltered(variable.interfaceValue)) return true;
  if (!definition.TakeType(variable.variableType)) return RefuseType(variable);
  return JudgeValue(variable, value, definition);
}

bool KSRuleInstance::Evaluation::TryCheckOnly(const VarInfo& variable, const TypedValue& value,
                                              const Found& found) {
  // Who wants to have values explained wants to see their rules.
  if (outcome_.explainer() != nullptr || lookUp_.IsFiltered(variable.interfaceValue)) return false;
  const ShortCheck check =
      ShortCheck::Of(variable, value, found, {subject_.time, MayLearn(), *settings_.rules});
  if (check.answer == ShortCheck::kOpen) return false;
  if (check.answer == ShortCheck::kBreaks) {
    outcome_.CollectAlert(variable, check.ruleType, check.ruleParam);
  }
  return true;
}

bool KSRuleInstance::Evaluation::JudgeValue(const VarInfo& variable, const TypedValue& value,
                                            const TakenDefinition& definition) {
  const std::shared_ptr<KSDataBase> point = value.MakePoint(subject_.time);
  if (!point) return RefuseNoValue();
  RuleMaterial material =
      RuleMaterial::Read(definition, value.dataType(), MayLearn(), subject_.domainId);
  if (material.isHistoryRefused) {
    outcome_.LogRefusedHistory(variable);
    // A rule of numbers is kept with all that is stored of it; else a new history begins.
    if (material.rule && IsNumeric(value.dataType())) return true;
    material.history = MakeHistory(value.dataType());
  }
  if (value.dataType() == KSDataTable) {
    FillTablePoint(variable, material.history.get(), static_cast<KSTableDataPoint&>(*point));
  }
  const Judgement judgement =
      Judgement::Of(point, definition.own, material, {subject_.time, settings_, subject_.domainId});
  if (material.rule) {
    outcome_.Conclude({variable, point, definition, *material.rule, judgement});
    lookUp_.Keep(definition);
  } else if (material.mayLearn && material.history) {
    outcome_.KeepForLearning(variable, point, definition, *material.history);
  }
  return true;
}

bool KSRuleInstance::Evaluation::RefuseUnreadable(const VarInfo& variable) {
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
         "Variable:%s is not evaluated, what is stored of device:%s could not be read.",
         variable.variableName.c_str(), subject_.deviceName.c_str());
  return Refuse(kRefusalUnreadable);
}

bool KSRuleInstance::Evaluation::RefuseUndefined(const VarInfo& variable) {
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogInformation, "Variable:%s is not define rule.",
         variable.variableName.c_str());
  return Refuse(kRefusalUndefined);
}

bool KSRuleInstance::Evaluation::RefuseType(const VarInfo& variable) {
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
         "Variable type is changed. the variable type is mismatch to variable value type.Var:%s",
         variable.variableName.c_str());
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
         "Refused: device:%s, source:%s, interface:%s, variable:%s.", subject_.deviceName.c_str(),
         subject_.variableSource.c_str(), variable.interfaceValue.c_str(),
         variable.variableName.c_str());
  return Refuse(kRefusalType);
}

bool KSRuleInstance::Evaluation::RefuseNoValue() {
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError, "nullptr == pData");
  return Refuse(kRefusalNoValue);
}

bool KSRuleInstance::Evaluation::Refuse(EnumRefusal why) {
  refusal_ = why;
  return false;
}

}  // namespace keelstone
