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

void TakenDefinition::TakeHistory(const PackedHistory& kept, EnumKSDataType dataType,
                                  Workbench& bench) {
  if (const auto text = kept.Text()) {
    history = *text;
  } else {
    points = bench.History(kept, dataType);
    if (!points) HoldHistory(kept.ToText());
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
