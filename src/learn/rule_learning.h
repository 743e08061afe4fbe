#ifndef KEELSTONE_LEARN_RULE_LEARNING_H
#define KEELSTONE_LEARN_RULE_LEARNING_H

#include <memory>
#include <string>

#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"
#include "settings/rule_settings.h"

namespace keelstone {

/// What a rule is learned from, lent for one call.
struct LearningMaterial {
  const std::shared_ptr<RuleDefinitionData>& ruleDefine;
  const std::shared_ptr<HistoryDataBase>& history;
  const std::shared_ptr<KSDataFeature>& feature;
  EnumKSDataType dataType;
  const std::string& domainId;  // kept by the rule
  const RuleSettings& settings;
};

/// The first rule of the family of the data type that accepts the material, with an empty
/// parameter (the caller goes on with UpdateRuleWith); empty when none fits. Any thread.
std::shared_ptr<IRuleBase> LearnRule(const LearningMaterial& material);

// The families, whatever the data type: without a rule for it nothing is learned.
std::shared_ptr<IRuleBase> LearnNumberRule(const LearningMaterial& material);
std::shared_ptr<IRuleBase> LearnStringRule(const LearningMaterial& material);
std::shared_ptr<IRuleBase> LearnTableRule(const LearningMaterial& material);

}  // namespace keelstone

#endif  // KEELSTONE_LEARN_RULE_LEARNING_H
