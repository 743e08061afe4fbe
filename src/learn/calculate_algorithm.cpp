#include "keelstone/calculate_algorithm.h"

#include "learn/rule_learning.h"
#include "learn/rule_type_table.h"
#include "settings/rule_settings.h"

namespace keelstone {

namespace {

using Learn = std::shared_ptr<IRuleBase> (*)(const LearningMaterial&);

/// An empty history does not ask for the domain's settings.
std::shared_ptr<IRuleBase> LearnInDomain(Learn learn,
                                         const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                         const std::shared_ptr<HistoryDataBase>& history,
                                         const std::shared_ptr<KSDataFeature>& feature,
                                         EnumKSDataType dataType, const std::string& domainId) {
  if (!history || history->GetDataCount() == 0) return nullptr;
  const auto settings = DomainRuleSettings(domainId);
  return settings ? learn({ruleDefine, history, feature, dataType, domainId, *settings}) : nullptr;
}

}  // namespace

RuleCalculateAlgBase::~RuleCalculateAlgBase() = default;

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::GetRuleByType(EnumRuleType ruleType,
                                                               EnumKSDataType dataType) const {
  return MakeRule(ruleType, dataType);
}

std::shared_ptr<IRuleBase> NumicalRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return LearnInDomain(LearnNumberRule, ruleDefine, history, feature, dataType, domainId);
}

std::shared_ptr<IRuleBase> StrRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return LearnInDomain(LearnStringRule, ruleDefine, history, feature, dataType, domainId);
}

std::shared_ptr<IRuleBase> TableRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return LearnInDomain(LearnTableRule, ruleDefine, history, feature, dataType, domainId);
}

}  // namespace keelstone
