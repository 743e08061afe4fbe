#ifndef KEELSTONE_ENGINE_OUTCOME_H
#define KEELSTONE_ENGINE_OUTCOME_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/evaluation_settings.h"
#include "engine/explainer.h"
#include "engine/judgement.h"
#include "engine/look_up.h"
#include "engine/subject.h"
#include "engine/taken_definition.h"
#include "keelstone/data_point.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_records.h"
#include "keelstone/update_result.h"
#include "keelstone/write_behind.h"

namespace keelstone {

/// The last step of a value's way: what an evaluation tells its host (results, explanations)
/// and what it has to store (rows of rules and of histories, which wait here until they are
/// handed to the write-behind cache). Both stand in the order of the values.
///
/// It belongs to one evaluation; the results are shared with the host, the definitions in the
/// rows with the look-up. One thread.
class Outcome {
 public:
  /// A value that has a rule, with all that was found out about it.
  struct Case {
    const VarInfo& variable;
    const std::shared_ptr<KSDataBase>& point;
    const TakenDefinition& definition;
    IRuleBase& rule;
    const Judgement& judgement;
  };

  /// Both stay with the owner. An alert shows the value only of variables whose names are
  /// shorter than `settings.StrValueLength()`.
  Outcome(const Subject& subject, const EvaluationSettings& settings);

  /// A further value comes.
  void Begin();
  /// Asks the rule whether the value breaks it, reports what changed, and writes the rule back
  /// into its definition.
  void Conclude(const Case& judged);
  /// A value without a rule: it joins the history, from which a rule may come one day.
  void KeepForLearning(const VarInfo& variable, const std::shared_ptr<KSDataBase>& point,
                       const TakenDefinition& definition, HistoryDataBase& history);
  void CollectAlert(const VarInfo& variable, std::int32_t ruleType, const std::string& ruleParam);
  /// Logs that what is stored of a variable is no history, once a variable.
  void LogRefusedHistory(const VarInfo& variable);

  /// A host has put another history in the place of the loaded one: it is stored, too, unless
  /// a newer one of the variable is.
  void NoteReplaced(const std::string& interfaceValue, const std::string& variableName);
  void CollectReplaced(const LookUp& lookUp);
  /// Whether rows wait that were not handed over yet.
  bool HasRows() const { return !pendingRules_.empty() || !pendingHistories_.empty(); }
  /// Before the first value: rows go into a unit in memory, with histories as points.
  void WorkInMemory() { isInMemory_ = true; }
  /// Puts the rows into the unit that the look-up works on, all or none.
  void StoreIn(LookUp& lookUp);
  /// Hands rows over, and once more those of earlier calls that nothing newer has overtaken.
  void HandOver();

  std::shared_ptr<KSRuleUpdateResultData> results() const { return results_; }
  void SetExplain(bool on) { explainer_ = on ? std::make_unique<Explainer>() : nullptr; }
  const Explainer* explainer() const { return explainer_.get(); }

 private:
  bool IsBroken(const Case& judged);
  void WriteRule(const Case& judged, bool followsValue);

  void CollectRule(const VarInfo& variable, const TakenDefinition& definition);
  void CollectHistory(const std::string& interfaceValue, const std::string& variableName,
                      std::string historyText);
  void CollectKept(const VarInfo& variable, const TakenDefinition& definition,
                   PackedHistory history);
  void CollectGoldenValue(const Case& judged);
  void CollectRuleChange(const Case& judged);

  const Subject& subject_;
  const EvaluationSettings& settings_;
  const std::shared_ptr<KSRuleUpdateResultData> results_;
  std::unique_ptr<Explainer> explainer_;  // empty: nothing is explained
  std::vector<ObjectRuleData> pendingRules_;
  std::vector<ObjectRuleHistoryData> pendingHistories_;
  // In the place of both, over a unit in memory.
  bool isInMemory_ = false;
  std::vector<ResidentRow> residentRules_;
  std::vector<ResidentRow> residentHistories_;
  std::vector<std::shared_ptr<HandedRows>> handedRows_;  // one of each HandOver
  // Interface and variable of histories that were replaced and not collected since.
  std::set<std::pair<std::string, std::string>> replacedHistories_;
  std::set<std::pair<std::string, std::string>> refusedHistories_;  // interface, variable
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_OUTCOME_H
