#ifndef KEELSTONE_ENGINE_TAKEN_DEFINITION_H
#define KEELSTONE_ENGINE_TAKEN_DEFINITION_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "engine/resident_unit.h"
#include "engine/workbench.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_records.h"
#include "model/history/packed_history.h"

namespace keelstone {

/// A variable's definition for the length of one value's way. Rules read and write `own`: the
/// record itself where nobody else holds it, else a copy, which WriteBack puts into the
/// record at the end. One thread; the record behind it may be others' too.
///
/// Whatever looks definitions up fills it: a `history` that lies elsewhere must stay as it is
/// and where it is until the value has been judged and its outcome taken.
class TakenDefinition {
 public:
  TakenDefinition() = default;
  TakenDefinition(const TakenDefinition&) = delete;  // `history` may point into it
  TakenDefinition& operator=(const TakenDefinition&) = delete;

  /// What is stored of the variable in the end.
  const std::shared_ptr<RuleDefinitionData>& record() const { return shared ? shared : own; }
  bool IsCopy() const { return shared && shared != own; }

  /// Keeps a history text that lies nowhere else.
  void HoldHistory(std::string text) {
    heldHistory_ = std::move(text);
    history = heldHistory_;
  }
  /// Takes a history that is kept in memory, as points where it is one of this type; it must
  /// stay as it is like any other.
  void TakeHistory(const PackedHistory& kept, EnumKSDataType dataType, Workbench& bench);
  /// Whether values of this type code are the definition's. One that knows none yet takes
  /// this one, the record too.
  bool TakeType(std::int32_t variableType) const;
  /// Over a unit in memory: the record is one that has changed from here on.
  ResidentCopy& Change() const {
    if (!changed) changed = std::make_shared<ResidentCopy>(ResidentCopy{record(), {}});
    return *changed;
  }
  /// Puts rule, parameter and history of a copy into the record.
  void WriteBack() const;

  std::shared_ptr<RuleDefinitionData> own;
  std::shared_ptr<RuleDefinitionData> shared;  // the record; empty while the definition is new
  std::string_view history;                    // what is known of the variable so far
  std::shared_ptr<HistoryDataBase> points;     // in the place of the text
  // Over a unit in memory: what is stored of the variable, and its rule once it has changed.
  const ResidentVariable* stored = nullptr;
  mutable std::shared_ptr<ResidentCopy> changed;
  Workbench* workbench = nullptr;
  bool isNew = false;  // its rule is to be reported

 private:
  std::string heldHistory_;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_TAKEN_DEFINITION_H
