#ifndef KEELSTONE_ENGINE_JUDGEMENT_H
#define KEELSTONE_ENGINE_JUDGEMENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/evaluation_settings.h"
#include "engine/taken_definition.h"
#include "keelstone/data_feature.h"
#include "keelstone/data_point.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// What a value is judged by: its variable's rule and history as objects, wherever they come
/// from. One thread.
///
/// Read makes them of texts. A store that keeps the objects fills in the same: a rule that was
/// made from, or learned for, the very definition that Judgement::Of is given, with its
/// LentHistory as history; without a rule a history and its calculated feature.
struct RuleMaterial {
  EnumKSDataType dataType = KSDataUnknown;
  std::shared_ptr<IRuleBase> rule;           // empty: nothing is learned yet
  std::shared_ptr<HistoryDataBase> history;  // empty: nothing to learn from
  std::shared_ptr<KSDataFeature> feature;    // a rule makes its own when it is asked
  bool mayLearn = false;                     // whether rule and history may follow the value
  bool isHistoryRefused = false;             // the text is no history of this type
  Workbench* workbench = nullptr;            // where features are made, if there is one

  /// Reads a stored rule and its history, whose text must stay as it is and where it is as long
  /// as the material is used. `mayLearn` says whether the run learns; the material of a
  /// prescribed rule never does.
  static RuleMaterial Read(const TakenDefinition& definition, EnumKSDataType dataType,
                           bool mayLearn, const std::string& domainId);
};

/// The third step of a value's way: what the value makes of its variable's rule and history.
/// Whether it breaks the rule is asked when the outcome is taken, of the rule that is in the
/// material then.
///
/// It works on objects and knows nothing of where they are stored. One thread.
struct Judgement {
  /// What it needs besides the material.
  struct Terms {
    std::int64_t time;  // of the value, seconds since the epoch
    const EvaluationSettings& settings;
    const std::string& domainId;
  };

  bool goldenChanged = false;
  bool ruleChanged = false;   // learned just now, and other than before
  bool historyAdded = false;  // the value is the newest of the rule's history

  /// Relearns where that is due: `material.rule` is then the new rule, and the value joins
  /// its history. Else a prescribed rule may take the value as its golden one. `definition`
  /// is what the rules read and belong to.
  static Judgement Of(const std::shared_ptr<KSDataBase>& point,
                      const std::shared_ptr<RuleDefinitionData>& definition, RuleMaterial& material,
                      const Terms& terms);
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_JUDGEMENT_H
