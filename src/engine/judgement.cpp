#include "engine/judgement.h"

#include <utility>

#include "base/text/numbers.h"
#include "keelstone/algorithm_manager.h"
#include "learn/rule_learning.h"

namespace keelstone {

namespace {

// With a rule its own history decides, without one the history alone; with neither there is
// nothing to learn from.
bool IsYoung(const RuleMaterial& material, const Judgement::Terms& terms) {
  if (!material.history) return !material.rule;
  const std::int32_t limit = material.rule
                                 ? terms.settings.rules->LiveInterval(material.rule->GetType())
                                 : terms.settings.IntervalTime();
  return WrappingDifference(terms.time, material.history->GetLastTime()) <= limit;
}

Judgement Relearn(const std::shared_ptr<KSDataBase>& point,
                  const std::shared_ptr<RuleDefinitionData>& definition, RuleMaterial& material,
                  const Judgement::Terms& terms) {
  Judgement judgement;
  if (material.rule && material.workbench != nullptr && material.history) {
    material.feature = material.workbench->Feature(material.dataType, material.history);
  } else if (material.rule) {
    material.feature = material.rule->GetDataFeature();
  }
  const RuleSettings& settings = *terms.settings.rules;
  std::shared_ptr<IRuleBase> learned = LearnRule({definition, material.history, material.feature,
                                                  material.dataType, terms.domainId, settings});
  if (learned) {
    const bool isUpdated = learned->UpdateRuleWith(&settings);
    judgement.ruleChanged = !learned->IsEqual(material.rule.get());
    judgement.goldenChanged = isUpdated && judgement.ruleChanged;
    material.rule = std::move(learned);
  }
  if (material.rule && material.rule->LentHistory()) {
    material.rule->LentHistory()->AddData(point,
                                          settings.HistoryDataCount(material.rule->GetType()));
    judgement.historyAdded = true;
  }
  return judgement;
}

}  // namespace

RuleMaterial RuleMaterial::Read(const TakenDefinition& definition, EnumKSDataType dataType,
                                bool mayLearn, const std::string& domainId) {
  const std::string_view history = definition.history;
  KSRuleAlgMgr* const manager = KSRuleAlgMgr::Instance();
  RuleMaterial material;
  material.dataType = dataType;
  material.mayLearn = mayLearn;
  material.rule = manager->GetRuleByType(
      AlgTypeOf(dataType), static_cast<EnumRuleType>(definition.own->ruleType), dataType);
  if (material.rule) {
    if (definition.points) {
      material.rule->InitWithPoints(definition.own, definition.points, domainId);
      material.workbench = definition.workbench;
    } else {
      material.rule->InitWithHistory(definition.own, history, domainId);
    }
    material.mayLearn = mayLearn && material.rule->IsDynamic();
    material.history = material.rule->LentHistory();
    material.isHistoryRefused = !history.empty() && !material.rule->GetRuleData();
  } else if (mayLearn && definition.points) {
    material.history = definition.points;
    material.feature = definition.workbench->Feature(dataType, definition.points);
  } else if (mayLearn) {
    manager->ReadHistory(history, dataType, material.history, material.feature);
    material.isHistoryRefused = !history.empty() && !material.feature;
  }
  return material;
}

Judgement Judgement::Of(const std::shared_ptr<KSDataBase>& point,
                        const std::shared_ptr<RuleDefinitionData>& definition,
                        RuleMaterial& material, const Terms& terms) {
  if (material.mayLearn && !IsYoung(material, terms)) {
    return Relearn(point, definition, material, terms);
  }
  Judgement judgement;
  if (material.rule && !material.rule->IsDynamic()) {
    judgement.goldenChanged = material.rule->CheckGoldenValue(point);
  }
  return judgement;
}

}  // namespace keelstone
