#include "calc/rulecalculatealg.h"

#include "calc/ruletypetable.h"

namespace keelstone {

RuleCalculateAlgBase::~RuleCalculateAlgBase() = default;

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::GetRuleByType(EnumRuleType ruleType,
                                                               EnumKSDataType dataType) const {
  const RuleTypeRow* const row = FindRuleType(ruleType);
  return row == nullptr ? nullptr : row->make(ruleType, dataType);
}

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::FirstFitting(
    std::initializer_list<Candidate> candidates,
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) const {
  for (const Candidate& candidate : candidates) {
    std::shared_ptr<IRuleBase> rule = GetRuleByType(candidate.type, dataType);
    if (!rule) continue;
    rule->setIsLessCountCondition(candidate.lessCount);
    rule->SetHistoryAndDataFeature(ruleDefine, history, feature);
    if (rule->CheckRule(domainId)) return rule;
  }
  return nullptr;
}

std::shared_ptr<IRuleBase> NumicalRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return FirstFitting({{kIntEqual, true},
                       {kIntIncrease},
                       {kIntConstant},
                       {kIntRange},
                       {kIntEnum},
                       {kIntEqual, false}},
                      ruleDefine, history, feature, dataType, domainId);
}

std::shared_ptr<IRuleBase> StrRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return FirstFitting({{kStrEqual}, {kStrEnum}}, ruleDefine, history, feature, dataType, domainId);
}

std::shared_ptr<IRuleBase> TableRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return FirstFitting({{kTableMd5}}, ruleDefine, history, feature, dataType, domainId);
}

}  // namespace keelstone
