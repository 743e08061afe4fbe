#include <utility>

#include "engine/outcome.h"
#include "keelstone/json_value.h"

// What an evaluation found, as result records and as rows for the databases.
namespace keelstone {

namespace {

ResidentRow RowOf(const VarInfo& variable, const ResidentVariable* stored) {
  ResidentRow row;
  row.stored = stored;
  if (stored != nullptr) return row;
  row.interfaceValue = variable.interfaceValue;
  row.variableName = variable.variableName;
  return row;
}

}  // namespace

void Outcome::CollectAlert(const VarInfo& variable, std::int32_t ruleType,
                           const std::string& ruleParam) {
  JsonValue info(JsonType::Object);
  info["_t"] = ruleType;
  info["_p"] = ruleParam;
  // The length of the name, not of the value, decides: receivers rely on it.
  if (variable.variableName.size() < settings_.StrValueLength()) info["_v"] = variable.valueText;

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

void Outcome::CollectRule(const VarInfo& variable, const TakenDefinition& definition) {
  if (!replacedHistories_.empty())
    replacedHistories_.erase({variable.interfaceValue, variable.variableName});
  if (isInMemory_) {
    residentRules_.push_back(RowOf(variable, definition.stored));
    definition.Change();
    residentRules_.back().rule = definition.changed;
    return;
  }
  ObjectRuleData& row = pendingRules_.emplace_back();
  row.definitions.emplace(variable.variableName, definition.record());
  row.object = subject_.Object(variable.interfaceValue);
  row.variableSource = subject_.variableSource;
  row.variableParam = subject_.variableParam;
}

void Outcome::CollectHistory(const std::string& interfaceValue, const std::string& variableName,
                             std::string historyText) {
  if (!replacedHistories_.empty()) replacedHistories_.erase({interfaceValue, variableName});
  if (isInMemory_) {
    ResidentRow& kept = residentHistories_.emplace_back();
    kept.interfaceValue = interfaceValue;
    kept.variableName = variableName;
    kept.history = PackedHistory::OfText(historyText);
    return;
  }
  ObjectRuleHistoryData& row = pendingHistories_.emplace_back();
  row.history = std::move(historyText);
  row.object = subject_.Object(interfaceValue);
  row.variableSource = subject_.variableSource;
  row.variableName = variableName;
  row.variableParam = subject_.variableParam;
}

void Outcome::CollectKept(const VarInfo& variable, const TakenDefinition& definition,
                          PackedHistory history) {
  if (!replacedHistories_.empty())
    replacedHistories_.erase({variable.interfaceValue, variable.variableName});
  residentHistories_.push_back(RowOf(variable, definition.stored));
  residentHistories_.back().history = std::move(history);
}

void Outcome::NoteReplaced(const std::string& interfaceValue, const std::string& variableName) {
  replacedHistories_.emplace(interfaceValue, variableName);
}

// What the evaluation has not written anew since: a later row of one key takes the place of
// an earlier one.
void Outcome::CollectReplaced(const LookUp& lookUp) {
  for (const auto& [interfaceValue, variableName] : std::exchange(replacedHistories_, {})) {
    const std::string* const text = lookUp.LoadedHistory(interfaceValue, variableName);
    CollectHistory(interfaceValue, variableName, text != nullptr ? *text : std::string());
  }
}

void Outcome::StoreIn(LookUp& lookUp) {
  if (residentRules_.empty() && residentHistories_.empty()) return;
  lookUp.Store(residentRules_, residentHistories_);
  residentRules_.clear();
  residentHistories_.clear();
}

void Outcome::HandOver() {
  DBWriteWrapper* const cache = DBWriteWrapper::Instance();
  std::shared_ptr<HandedRows> handed;
  if (HasRows()) {
    // First: the rows of an earlier call that these overtake are not handed over again.
    handed =
        cache->HandOver(subject_.domainId, subject_.deviceName, std::exchange(pendingRules_, {}),
                        std::exchange(pendingHistories_, {}));
  }
  for (const auto& earlier : handedRows_) {
    cache->HandOverAgain(subject_.domainId, subject_.deviceName, *earlier);
  }
  if (handed != nullptr) handedRows_.push_back(std::move(handed));
}

// Both result items leave the interface path empty: receivers find the interface by its
// name.
void Outcome::CollectGoldenValue(const Case& judged) {
  auto item = std::make_shared<KSValueUpdateResultItem>(
      subject_.nodeId, judged.variable.interfaceValue, subject_.variableSource,
      judged.variable.variableName, judged.rule.GetRuleKSValue(), judged.rule.GetRuleKSValueTime(),
      subject_.structureId, subject_.variableParam, kVariableSourceParser);
  item->strDeviceName = subject_.deviceName;
  item->strNodePathSchema = subject_.nodePathSchema;
  item->nVariableType = judged.definition.own->variableType;
  item->nRuleId = judged.definition.own->ruleType;
  results_->AddKSValueUpdateResultItem(std::move(item));
}

void Outcome::CollectRuleChange(const Case& judged) {
  auto item = std::make_shared<KSRuleUpdateResultItem>();
  item->SetRuleDefinition(*judged.definition.own);
  item->strRuleAlgParam = judged.rule.GetRuleParam();
  item->strVariableParam = subject_.variableParam;
  item->strVariableName = judged.variable.variableName;
  item->strNodeId = subject_.nodeId;
  item->strInterfaceName = judged.variable.interfaceValue;
  item->strVariableSource = subject_.variableSource;
  item->strDeviceName = subject_.deviceName;
  item->strNodePathSchema = subject_.nodePathSchema;
  item->nOperateType = kUploadUpdate;
  item->isLearned = judged.judgement.ruleChanged;
  results_->AddKSRuleUpdateResultItem(std::move(item));
}

}  // namespace keelstone
