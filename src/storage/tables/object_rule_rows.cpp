#include "storage/tables/object_rule_rows.h"

namespace keelstone {

namespace {

constexpr int kKeyColumns = 6;

template <class Row>
void AnswerKey(int column, const Row& row, const std::string& variableName,
               ColumnValue value) noexcept {
  switch (column) {
    case 0:
      return value.Text(row.object.deviceName);
    case 1:
      return value.Text(row.object.interfaceValue);
    case 2:
      return value.Text(row.variableSource);
    case 3:
      return value.Text(row.variableParam);
    case 4:
      return value.Text(variableName);
    default:
      return value.Number(row.variableSourceType);
  }
}

}  // namespace

const char* const RuleRows::kUpdated =
    "variableDataType=excluded.variableDataType,interfacePath=excluded.interfacePath,"
    "vxNodePathSchema=excluded.vxNodePathSchema,ruleGenerateType=excluded.ruleGenerateType,"
    "ruleTypeId=excluded.ruleTypeId,ruleAlgParameter=excluded.ruleAlgParameter,"
    "isEnable=excluded.isEnable,isDel=excluded.isDel";
const char* const HistoryRows::kUpdated = "HistoryData=excluded.HistoryData";

RuleRows::RuleRows(const std::vector<const ObjectRuleData*>& rows,
                   std::vector<ObjectRuleHistoryData>& histories)
    : rows_(rows), histories_(histories), row_(rows.begin()) {
  if (!HasRow()) return;
  entry_ = (*row_)->definitions.begin();
  FindDefinition();
}

const char* RuleRows::Columns() const noexcept {
  return "deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
         "variableDataType, interfacePath, vxNodePathSchema, ruleGenerateType, ruleTypeId, "
         "ruleAlgParameter, isEnable, isDel";
}

void RuleRows::Next() {
  if (!definition_.history.empty()) {
    const ObjectRuleData& row = **row_;
    histories_.push_back({definition_.history, row.object, row.variableSource, entry_->first,
                          row.variableParam, row.variableSourceType});
  }
  ++entry_;
  FindDefinition();
}

// The entry, or the next one that has a definition.
void RuleRows::FindDefinition() {
  while (true) {
    for (; entry_ != (*row_)->definitions.end(); ++entry_) {
      if (entry_->second != nullptr) return definition_.Take(*entry_->second);
    }
    if (++row_ == rows_.end()) return;
    entry_ = (*row_)->definitions.begin();
  }
}

void RuleRows::Definition::Take(const RuleDefinitionData& definition) {
  const DefinitionLock lock(definition);
  variableType = definition.variableType;
  ruleGenerateType = definition.ruleGenerateType;
  ruleType = definition.ruleType;
  ruleParam = definition.ruleParam;
  history = definition.history;
}

void RuleRows::Answer(int column, ColumnValue value) const noexcept {
  const ObjectRuleData& row = **row_;
  if (column < kKeyColumns) return AnswerKey(column, row, entry_->first, value);
  switch (column) {
    case 6:
      return value.Number(definition_.variableType);
    case 7:
      return value.Text(row.object.interfacePath);
    case 8:
      return value.Text(row.object.nodePathSchema);
    case 9:
      return value.Number(definition_.ruleGenerateType);
    case 10:
      return value.Number(definition_.ruleType);
    case 11:
      return value.Text(definition_.ruleParam);
    default:  // isEnable, isDel
      return value.Number(0);
  }
}

HistoryRows::HistoryRows(const std::vector<const ObjectRuleHistoryData*>& rows)
    : rows_(rows), row_(rows.begin()) {}

const char* HistoryRows::Columns() const noexcept {
  return "deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
         "HistoryData";
}

void HistoryRows::Answer(int column, ColumnValue value) const noexcept {
  const ObjectRuleHistoryData& row = **row_;
  if (column < kKeyColumns) return AnswerKey(column, row, row.variableName, value);
  value.Text(row.history);
}

}  // namespace keelstone
