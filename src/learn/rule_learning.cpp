#include "learn/rule_learning.h"

#include <cstdint>
#include <initializer_list>

#include "learn/rule_type_table.h"
#include "model/rules/numeric_rules.h"

namespace keelstone {

namespace {

template <class Rule>
std::shared_ptr<IRuleBase> Accepted(const LearningMaterial& material, bool lessCount = false) {
  auto rule = std::make_shared<Rule>();
  rule->setIsLessCountCondition(lessCount);
  rule->SetHistoryAndDataFeature(material.ruleDefine, material.history, material.feature);
  rule->Accept(material.domainId);
  return rule;
}

/// What CheckRule of one candidate after the other comes to: they are tested before any is
/// made.
template <class T>
std::shared_ptr<IRuleBase> FirstFittingNumber(const LearningMaterial& material) {
  const auto* const found = dynamic_cast<const KSNumercialDataFeature<T>*>(material.feature.get());
  if (found == nullptr) return nullptr;
  const KSNumercialDataFeature<T>& feature = *found;
  const auto* const history = dynamic_cast<const NumercialHistoryData<T>*>(material.history.get());
  const RuleSettings& s = material.settings;
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

std::shared_ptr<IRuleBase> FirstFitting(std::initializer_list<EnumRuleType> candidates,
                                        const LearningMaterial& material) {
  for (const EnumRuleType candidate : candidates) {
    std::shared_ptr<IRuleBase> rule = MakeRule(candidate, material.dataType);
    if (!rule) continue;
    rule->SetHistoryAndDataFeature(material.ruleDefine, material.history, material.feature);
    if (rule->CheckRuleWith(material.settings, material.domainId)) return rule;
  }
  return nullptr;
}

}  // namespace

std::shared_ptr<IRuleBase> LearnNumberRule(const LearningMaterial& material) {
  if (!material.history || material.history->GetDataCount() == 0) return nullptr;
  switch (material.dataType) {
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

std::shared_ptr<IRuleBase> LearnStringRule(const LearningMaterial& material) {
  return FirstFitting({kStrEqual, kStrEnum}, material);
}

std::shared_ptr<IRuleBase> LearnTableRule(const LearningMaterial& material) {
  return FirstFitting({kTableMd5}, material);
}

std::shared_ptr<IRuleBase> LearnRule(const LearningMaterial& material) {
  switch (AlgTypeOf(material.dataType)) {
    case KSAlgString:
      return LearnStringRule(material);
    case KSAlgTable:
      return LearnTableRule(material);
    default:
      return LearnNumberRule(material);
  }
}

}  // namespace keelstone
