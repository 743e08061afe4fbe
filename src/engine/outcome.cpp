#include "engine/outcome.h"

#include "base/text/numbers.h"
#include "keelstone/logger.h"
#include "records/rule_kind_rows.h"

namespace keelstone {

namespace {

// A variable without a rule keeps this many values until one is learned.
constexpr std::int32_t kValuesWithoutRule = 10;
constexpr std::int32_t kTablesWithoutRule = 5;

/// A history as it stays in memory: what came as a text is written as one, of which most lies
/// ready.
PackedHistory Kept(const TakenDefinition& definition, const HistoryDataBase& history) {
  return definition.points ? PackedHistory::Of(history) : PackedHistory::OfText(history.ToString());
}

}  // namespace

Outcome::Outcome(const Subject& subject, const EvaluationSettings& settings)
    : subject_(subject),
      settings_(settings),
      results_(std::make_shared<KSRuleUpdateResultData>()) {}

void Outcome::Begin() {
  if (explainer_) explainer_->Begin();
}

// The alert shows the definition as it stood when the value was judged; only then is the
// rule written back into it.
void Outcome::Conclude(const Case& judged) {
  IRuleBase& rule = judged.rule;
  RuleDefinitionData& own = *judged.definition.own;
  if (IsBroken(judged)) CollectAlert(judged.variable, own.ruleType, own.ruleParam);
  const bool followsValue = KindOf(rule.GetType()).followsValues && !rule.IsDynamic();
  if (followsValue) rule.UpdateParam(judged.point);
  own.ruleType = rule.GetType();
  own.ruleParam = rule.GetRuleParam();
  WriteRule(judged, followsValue);
  judged.definition.WriteBack();
}

bool Outcome::IsBroken(const Case& judged) {
  const bool isBroken = judged.rule.CheckAlert(judged.point);
  if (!explainer_) return isBroken;
  const Explainer::Case explained{judged.variable,
                                  judged.point,
                                  subject_.time,
                                  judged.rule,
                                  judged.definition.own->ruleGenerateType,
                                  judged.judgement.ruleChanged,
                                  judged.judgement.historyAdded};
  if (isBroken) {
    explainer_->Breaks(explained);
  } else {
    explainer_->Fits(explained);
  }
  return isBroken;
}

// The history goes where somebody will read it: into a record that others get to see, or
// into a row of its own.
void Outcome::WriteRule(const Case& judged, bool followsValue) {
  const VarInfo& variable = judged.variable;
  const TakenDefinition& definition = judged.definition;
  const Judgement& judgement = judged.judgement;
  const bool isRuleCollected = followsValue || definition.isNew || judgement.ruleChanged;
  const std::shared_ptr<HistoryDataBase>& history = judged.rule.LentHistory();
  const bool isKept = isInMemory_ && !definition.IsCopy();
  std::string historyText;
  if (history && !isKept && (isRuleCollected || judgement.historyAdded || definition.IsCopy())) {
    history->WriteTo(historyText);
  }
  if (judgement.goldenChanged) CollectGoldenValue(judged);
  if (isRuleCollected) {
    if (!followsValue) CollectRuleChange(judged);
    CollectRule(variable, definition);
  } else if (judgement.historyAdded && isKept) {
    CollectKept(variable, definition, Kept(definition, *history));
  } else if (judgement.historyAdded && !historyText.empty()) {
    CollectHistory(variable.interfaceValue, variable.variableName,
                   definition.IsCopy() ? historyText : std::move(historyText));
  }
  if (!isRuleCollected && !definition.IsCopy()) return;
  if (isKept) {
    const bool isThere = history && history->GetDataCount() > 0;
    definition.Change().history = isThere ? Kept(definition, *history) : PackedHistory();
  } else {
    definition.own->history = std::move(historyText);
  }
}

void Outcome::KeepForLearning(const VarInfo& variable, const std::shared_ptr<KSDataBase>& point,
                              const TakenDefinition& definition, HistoryDataBase& history) {
  if (WrappingDifference(subject_.time, history.GetLastTime()) <= settings_.IntervalTime()) return;
  history.AddData(point,
                  variable.dataType == KSDataTable ? kTablesWithoutRule : kValuesWithoutRule);
  if (isInMemory_) return CollectKept(variable, definition, Kept(definition, history));
  CollectHistory(variable.interfaceValue, variable.variableName, history.ToString());
}

void Outcome::LogRefusedHistory(const VarInfo& variable) {
  if (!refusedHistories_.emplace(variable.interfaceValue, variable.variableName).second) return;
  KS_LOG("FS_Keelstone", "KSRuleInstance::ProcessVariable", "ksruleinstance", kLogError,
         "History of variable:%s is refused, device:%s, interface:%s.",
         variable.variableName.c_str(), subject_.deviceName.c_str(),
         variable.interfaceValue.c_str());
}

}  // namespace keelstone
