#include <utility>

#include "engine/evaluation.h"
#include "keelstone/json_value.h"

// What an evaluation found, as result records and as rows for the databases.
namespace keelstone {

ObjectDefine KSRuleInstance::Evaluation::MakeObject(const std::string& interfaceValue) const {
  ObjectDefine object;
  object.nodeId = subject_.nodeId;
  object.nodePathSchema = subject_.nodePathSchema;
  object.deviceName = subject_.deviceName;
  object.interfaceValue = interfaceValue;
  return object;
}

void KSRuleInstance::Evaluation::CollectAlertRueslt(const VarInfo& variable, std::int32_t ruleType,
                                                    const std::string& ruleParam) {
  JsonValue info(JsonType::Object);
  info["_t"] = ruleType;
  info["_p"] = ruleParam;
  // The length of the name, not of the value, decides: receivers rely on it.
  if (variable.variableName.size() < strValueLength_) info["_v"] = variable.valueText;

  auto alert = std::make_shared<KSAlertData>();
  alert->SetNodeId(subject_.nodeId);
  alert->SetNodeSchema(subject_.nodePathSchema);
  alert->SetDeviceName(subject_.deviceName);
  alert->SetInterfacePath(variable.interfacePath);
  alert->SetInterfaceValue(variable.interfaceValue);
  alert->SetParserParam(subject_.variableParam);
  alert->SetSourcePath(subject_.variableSource);
  alert->SetVaraibleName(variable.variableName);
  alert->SetLiveTime(subject_.time);
  alert->SetAlertInfo(info.toString());
  results_->AddKSAlertResultItem(std::move(alert));
}

void KSRuleInstance::Evaluation::CollectRuleUpdateRueslt(const VarInfo& variable,
                                                         const Definition& definition) {
  if (!replacedHistories_.empty())
    replacedHistories_.erase({variable.interfaceValue, variable.variableName});
  ObjectRuleData& row = pendingRules_.emplace_back();
  row.definitions.emplace(variable.variableName, definition.record());
  row.object = MakeObject(variable.interfaceValue);
  row.variableSource = subject_.variableSource;
  row.variableParam = subject_.variableParam;
}

void KSRuleInstance::Evaluation::CollectHistory(const VarInfo& variable, std::string historyText) {
  if (!replacedHistories_.empty())
    replacedHistories_.erase({variable.interfaceValue, variable.variableName});
  ObjectRuleHistoryData& row = pendingHistories_.emplace_back();
  row.history = std::move(historyText);
  row.object = MakeObject(variable.interfaceValue);
  row.variableSource = subject_.variableSource;
  row.variableName = variable.variableName;
  row.variableParam = subject_.variableParam;
}

// What the evaluation has not written anew since: a later row of one key takes the place of
// an earlier one.
void KSRuleInstance::Evaluation::CollectReplacedHistories() {
  for (const auto& [interfaceValue, variableName] : std::exchange(replacedHistories_, {})) {
    VarInfo variable;
    variable.interfaceValue = interfaceValue;
    variable.variableName = variableName;
    CollectHistory(variable, histories_[interfaceValue][variableName]);
  }
}

// Both result items leave the interface path empty: receivers find the interface by its
// name.
void KSRuleInstance::Evaluation::UpdateKSValueResultItem(const VarInfo& variable,
                                                         const IRuleBase& rule,
                                                         const RuleDefinitionData& definition) {
  auto item = std::make_shared<KSValueUpdateResultItem>(
      subject_.nodeId, variable.interfaceValue, subject_.variableSource, variable.variableName,
      rule.GetRuleKSValue(), rule.GetRuleKSValueTime(), subject_.structureId,
      subject_.variableParam, kVariableSourceParser);
  item->strDeviceName = subject_.deviceName;
  item->strNodePathSchema = subject_.nodePathSchema;
  item->nVariableType = definition.variableType;
  item->nRuleId = definition.ruleType;
  results_->AddKSValueUpdateResultItem(std::move(item));
}

void KSRuleInstance::Evaluation::RuleUpdateResultItem(const VarInfo& variable,
                                                      const IRuleBase& rule,
                                                      const RuleDefinitionData& definition,
                                                      bool isLearned) {
  auto item = std::make_shared<KSRuleUpdateResultItem>();
  item->SetRuleDefinition(definition);
  item->strRuleAlgParam = rule.GetRuleParam();
  item->strVariableParam = subject_.variableParam;
  item->strVariableName = variable.variableName;
  item->strNodeId = subject_.nodeId;
  item->strInterfaceName = variable.interfaceValue;
  item->strVariableSource = subject_.variableSource;
  item->strDeviceName = subject_.deviceName;
  item->strNodePathSchema = subject_.nodePathSchema;
  item->nOperateType = kUploadUpdate;
  item->isLearned = isLearned;
  results_->AddKSRuleUpdateResultItem(std::move(item));
}

}  // namespace keelstone
