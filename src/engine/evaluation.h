#ifndef KEELSTONE_ENGINE_EVALUATION_H
#define KEELSTONE_ENGINE_EVALUATION_H

#include <string>

#include "engine/evaluation_settings.h"
#include "engine/look_up.h"
#include "engine/outcome.h"
#include "engine/subject.h"
#include "engine/taken_definition.h"
#include "engine/typed_value.h"
#include "keelstone/rule_instance.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// The inside of a rule instance: leads each value from the look-up over the short check and
/// the judgement to the outcome, and says why when it turns one away. It holds whose values
/// these are and one snapshot of the settings; the steps are handed what they need of both.
/// One thread.
class KSRuleInstance::Evaluation {
 public:
  Evaluation(Subject subject, bool onDemandTask);

  // What KSRuleInstance says of these under its own names.
  bool ProcessVariable(const VarInfo& variable);
  void SerializeLocalDB();
  void ReplaceHistory(const std::string& interfaceValue, const std::string& variableName,
                      std::string history);
  void SetOnlyUpdateKSValue() { onDemandTask_ = true; }
  bool IsOndemandTask() const { return onDemandTask_; }
  EnumRefusal refusal() const { return refusal_; }

  LookUp& lookUp() { return lookUp_; }
  Outcome& outcome() { return outcome_; }

 private:
  bool TakeValue(const VarInfo& variable);
  bool TryCheckOnly(const VarInfo& variable, const TypedValue& value, const Found& found);
  bool JudgeValue(const VarInfo& variable, const TypedValue& value,
                  const TakenDefinition& definition);
  bool MayLearn() const { return settings_.dynamicCalculation && !onDemandTask_; }

  bool RefuseUnreadable(const VarInfo& variable);
  bool RefuseUndefined(const VarInfo& variable);
  bool RefuseType(const VarInfo& variable);
  bool RefuseNoValue();
  bool Refuse(EnumRefusal why);

  const Subject subject_;
  bool onDemandTask_;
  EnumRefusal refusal_ = kRefusalNone;  // of the last value
  LookUp lookUp_;
  const EvaluationSettings settings_;
  Outcome outcome_;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_EVALUATION_H
