#include "engine/taken_definition.h"

namespace keelstone {

bool TakenDefinition::TakeType(std::int32_t variableType) const {
  if (own->variableType != 0) return own->variableType == variableType;
  own->variableType = variableType;
  if (IsCopy()) {
    const DefinitionLock lock(*shared);
    shared->variableType = variableType;
  }
  return true;
}

void TakenDefinition::TakeHistory(const PackedHistory& stored, EnumKSDataType dataType) {
  if (const auto text = stored.Text()) {
    history = *text;
  } else {
    points = stored.Open(dataType);
    if (!points) HoldHistory(stored.ToText());
  }
}

void TakenDefinition::WriteBack() const {
  if (!IsCopy()) return;
  const DefinitionLock lock(*shared);
  shared->ruleType = own->ruleType;
  shared->ruleParam.swap(own->ruleParam);
  shared->history.swap(own->history);
}

}  // namespace keelstone
