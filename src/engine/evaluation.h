#ifndef KEELSTONE_ENGINE_EVALUATION_H
#define KEELSTONE_ENGINE_EVALUATION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/explainer.h"
#include "keelstone/algorithm_manager.h"
#include "keelstone/data_manager.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_instance.h"
#include "keelstone/rule_records.h"
#include "keelstone/write_behind.h"
#include "settings/rule_settings.h"

namespace keelstone {

/// The inside of a rule instance: who is evaluated, what was loaded for it, and the way of
/// one value through the rules. One thread.
class KSRuleInstance::Evaluation {
 public:
  /// Whose values these are, as the instance's constructor takes it.
  struct Subject {
    std::string variableSource;
    std::string nodeId;
    std::string deviceName;
    std::string nodePathSchema;
    std::string structureId;
    std::string variableParam;
    std::string domainId;
    std::string reserved;
    std::int64_t time;  // seconds since the epoch
  };

  Evaluation(Subject subject, bool onDemandTask);

  bool IsInBlockTime();
  bool IsDefineRule() const;
  bool LoadRules();
  bool LoadHistories();
  void SetRules(DevParserRule rules);
  void SetHistories(DevParserHistory histories);
  bool IsVarDefineRule(const std::string& variableName);
  bool ProcessVariable(const VarInfo& variable);
  void SerializeLocalDB();
  const std::string* LoadedHistory(const std::string& interfaceValue,
                                   const std::string& variableName) const;
  void ReplaceHistory(const std::string& interfaceValue, const std::string& variableName,
                      std::string history);
  EnumRefusal refusal() const { return refusal_; }

  std::shared_ptr<KSRuleUpdateResultData> results() const { return results_; }
  void SetExplain(bool on) { explainer_ = on ? std::make_unique<Explainer>() : nullptr; }
  const Explainer* explainer() const { return explainer_.get(); }
  void SetOnlyUpdateKSValue() { onDemandTask_ = true; }
  bool IsOndemandTask() const { return onDemandTask_; }

 private:
  /// What is there of a variable, where it lies.
  struct Found {
    std::shared_ptr<RuleDefinitionData> record;  // pending or loaded; empty without either
    const std::string* loadedHistory = nullptr;  // in histories_
    bool mayHavePending = false;                 // rows of the unit wait to be written
    bool isPending = false;                      // the record is one of them
    bool isOurs = false;                         // nobody else can hold the record
  };

  /// A variable's definition for the length of one evaluation. `own` is what rules read and
  /// write: the record itself where it is ours, else this evaluation's copy. `shared` is the
  /// record that was found, empty while the definition is new.
  struct Definition {
    std::shared_ptr<RuleDefinitionData> own;
    std::shared_ptr<RuleDefinitionData> shared;
    std::string_view history;  // what is known of the variable so far
    std::string heldHistory;   // where `history` lies if nowhere else
    bool isNew = false;

    const std::shared_ptr<RuleDefinitionData>& record() const { return shared ? shared : own; }
    bool IsCopy() const { return shared && shared != own; }
    void Hold(std::string text) {
      heldHistory = std::move(text);
      history = heldHistory;
    }
  };

  /// What was found out about one value.
  struct Judgement {
    std::shared_ptr<IRuleBase> rule;
    std::shared_ptr<HistoryDataBase> history;
    std::shared_ptr<KSDataFeature> feature;
    bool mayLearn = false;
    bool isHistoryRefused = false;
    bool goldenChanged = false;
    bool ruleChanged = false;
    bool historyAdded = false;
  };

  template <class Read>
  bool Load(const char* label, Read read);
  Found Find(const VarInfo& variable);
  bool TryCheckOnly(const VarInfo& variable, const Found& found);
  bool TakeDefinition(const VarInfo& variable, const Found& found, Definition& definition) const;
  bool TakeNewDefinition(const VarInfo& variable, Definition& definition) const;
  void TakeHistoryText(const VarInfo& variable, const Found& found, Definition& definition) const;
  bool TakeVariableType(const VarInfo& variable, const Definition& definition) const;
  bool IsFiltered(const std::string& interfaceValue);

  Judgement MeetRule(const VarInfo& variable, const Definition& definition) const;
  void JudgeValue(const VarInfo& variable, const Definition& definition,
                  const std::shared_ptr<KSDataBase>& point, Judgement& judgement) const;
  void Relearn(const VarInfo& variable, const Definition& definition,
               const std::shared_ptr<KSDataBase>& point, Judgement& judgement) const;
  bool TimeIntervalLessThanThreshold(const Judgement& judgement) const;
  void Conclude(const VarInfo& variable, const Definition& definition,
                const std::shared_ptr<KSDataBase>& point, const Judgement& judgement);
  bool CheckAlert(const VarInfo& variable, const Definition& definition,
                  const std::shared_ptr<KSDataBase>& point, const Judgement& judgement);
  void GenerateHistoryData(const VarInfo& variable, const std::shared_ptr<KSDataBase>& point,
                           HistoryDataBase& history);
  void LogRefusedHistory(const VarInfo& variable);
  bool TakeValue(const VarInfo& variable);
  bool Refuse(EnumRefusal why);
  void CollectReplacedHistories();

  ObjectDefine MakeObject(const std::string& interfaceValue) const;
  void CollectAlertRueslt(const VarInfo& variable, std::int32_t ruleType,
                          const std::string& ruleParam);
  void CollectRuleUpdateRueslt(const VarInfo& variable, const Definition& definition);
  void CollectHistory(const VarInfo& variable, std::string historyText);
  void UpdateKSValueResultItem(const VarInfo& variable, const IRuleBase& rule,
                               const RuleDefinitionData& definition);
  void RuleUpdateResultItem(const VarInfo& variable, const IRuleBase& rule,
                            const RuleDefinitionData& definition, bool isLearned);

  const Subject subject_;
  bool onDemandTask_;
  const std::shared_ptr<KSDataManagerSql> manager_;
  const std::shared_ptr<const RuleSettings> settings_;  // as they were at construction
  bool isUnreadable_;  // settings, rules or histories are there and could not be read
  const bool dynamicCalculation_;
  const std::int32_t intervalTime_;  // s
  const std::size_t strValueLength_;
  const std::shared_ptr<KSRuleUpdateResultData> results_;
  std::unique_ptr<Explainer> explainer_;  // empty: nothing is explained

  DevParserRule rules_;
  DevParserHistory histories_;
  // Where the last variable was: they mostly come interface by interface.
  DevParserRule::iterator rulesOfInterface_ = rules_.end();
  DevParserHistory::iterator historiesOfInterface_ = histories_.end();
  std::optional<PendingMark> pendingMark_;  // from the first variable on
  // Whether others may have come to hold records of rules_: a host that handed them over,
  // the write-behind cache after it got rows.
  bool mayBeShared_ = false;
  bool areRulesGiven_ = false;
  bool areHistoriesGiven_ = false;
  std::vector<ObjectRuleData> pendingRules_;
  std::vector<ObjectRuleHistoryData> pendingHistories_;
  std::vector<std::shared_ptr<HandedRows>> handedRows_;  // one of each SerializeLocalDB
  // Interface and variable of histories that were replaced and not collected since.
  std::set<std::pair<std::string, std::string>> replacedHistories_;
  EnumRefusal refusal_ = kRefusalNone;  // of the last value
  std::optional<std::set<std::string>> definedVariables_;
  std::set<std::pair<std::string, std::string>> refusedHistories_;  // interface, variable

  std::shared_ptr<const InterfaceFilterSet> filter_;
  std::uint64_t filterGeneration_ = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_EVALUATION_H
