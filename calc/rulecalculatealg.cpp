#include "calc/rulecalculatealg.h"

#include "calc/ruletypetable.h"

namespace keelstone {

namespace {

struct Candidate {
  EnumRuleType type;
  bool lessCount;
};

constexpr Candidate kNumericCandidates[] = {
    {kIntEqual, true},  {kIntIncrease, false}, {kIntConstant, false},
    {kIntRange, false}, {kIntEnum, false},     {kIntEqual, false},
};

}  // namespace

RuleCalculateAlgBase::~RuleCalculateAlgBase() = default;

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::GetRuleByType(EnumRuleType ruleType,
                                                               EnumKSDataType dataType) const {
  const RuleTypeRow* const row = FindRuleType(ruleType);
  return row == nullptr ? nullptr : row->make(ruleType, dataType);
}

std::shared_ptr<IRuleBase> NumicalRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  for (const Candidate& candidate : kNumericCandidates) {
    const std::shared_ptr<IRuleBase> rule = GetRuleByType(candidate.type, dataType);
    if (!rule) continue;
    rule->setIsLessCountCondition(candidate.lessCount);
    rule->SetHistoryAndDataFeature(ruleDefine, history, feature);
    if (rule->CheckRule(domainId)) return rule;
  }
  return nullptr;
}

}  // namespace keelstone
