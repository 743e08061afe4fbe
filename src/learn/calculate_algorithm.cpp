#include "keelstone/calculate_algorithm.h"

#include "keelstone/rule_settings.h"
#include "learn/rule_type_table.h"
#include "model/rules/numeric_rules.h"

namespace keelstone {

RuleCalculateAlgBase::~RuleCalculateAlgBase() = default;

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::GetRuleByType(EnumRuleType ruleType,
                                                               EnumKSDataType dataType) const {
  return MakeRule(ruleType, dataType);
}

std::shared_ptr<IRuleBase> RuleCalculateAlgBase::FirstFitting(
    std::initializer_list<EnumRuleType> candidates,
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) const {
  for (const EnumRuleType candidate : candidates) {
    std::shared_ptr<IRuleBase> rule = GetRuleByType(candidate, dataType);
    if (!rule) continue;
    rule->SetHistoryAndDataFeature(ruleDefine, history, feature);
    if (rule->CheckRule(domainId)) return rule;
  }
  return nullptr;
}

namespace {

/// What a rule is learned from.
struct Material {
  const std::shared_ptr<RuleDefinitionData>& ruleDefine;
  const std::shared_ptr<HistoryDataBase>& history;
  const std::shared_ptr<KSDataFeature>& feature;
  const std::string& domainId;
};

template <class Rule>
std::shared_ptr<IRuleBase> Accepted(const Material& material, bool lessCount = false) {
  auto rule = std::make_shared<Rule>();
  rule->setIsLessCountCondition(lessCount);
  rule->SetHistoryAndDataFeature(material.ruleDefine, material.history, material.feature);
  rule->Accept(material.domainId);
  return rule;
}

/// What CheckRule of one candidate after the other comes to: they are tested before any is
/// made.
template <class T>
std::shared_ptr<IRuleBase> FirstFittingNumber(const Material& material) {
  if (!material.history || material.history->GetDataCount() == 0) return nullptr;
  const auto settings = DomainRuleSettings(material.domainId);
  const auto* const found = dynamic_cast<const KSNumercialDataFeature<T>*>(material.feature.get());
  if (!settings || found == nullptr) return nullptr;
  const KSNumercialDataFeature<T>& feature = *found;
  const auto* const history = dynamic_cast<const NumercialHistoryData<T>*>(material.history.get());
  const RuleSettings& s = *settings;
  if (s.intEqual && NumericEqualRule<T>::Fits(feature, history, *s.intEqual, true)) {
    return Accepted<NumericEqualRule<T>>(material, true);
  }
  if (s.intIncrease && NumericIncreaseRule<T>::Fits(feature, *s.intIncrease)) {
    return Accepted<NumericIncreaseRule<T>>(material);
  }
  if (s.intConstant && NumericConstantRule<T>::Fits(feature, *s.intConstant)) {
    return Accepted<NumericConstantRule<T>>(material);
  }
  if (s.intRange && s.intEnum && NumericRangeRule<T>::Fits(feature, *s.intRange, *s.intEnum)) {
    return Accepted<NumericRangeRule<T>>(material);
  }
  if (s.intEnum && NumericEnumRule<T>::Fits(feature, *s.intEnum)) {
    return Accepted<NumericEnumRule<T>>(material);
  }
  if (s.intEqual && NumericEqualRule<T>::Fits(feature, history, *s.intEqual, false)) {
    return Accepted<NumericEqualRule<T>>(material);
  }
  return nullptr;
}

}  // namespace

std::shared_ptr<IRuleBase> NumicalRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  const Material material{ruleDefine, history, feature, domainId};
  switch (dataType) {
    case KSDataInt64:
      return FirstFittingNumber<std::int64_t>(material);
    case KSDataFloat:
      return FirstFittingNumber<float>(material);
    case KSDataDouble:
      return FirstFittingNumber<double>(material);
    default:
      return nullptr;
  }
}

std::shared_ptr<IRuleBase> StrRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return FirstFitting({kStrEqual, kStrEnum}, ruleDefine, history, feature, dataType, domainId);
}

std::shared_ptr<IRuleBase> TableRuleCalculateAlg::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId) {
  return FirstFitting({kTableMd5}, ruleDefine, history, feature, dataType, domainId);
}

}  // namespace keelstone
