#ifndef KEELSTONE_MODEL_RULES_LEARNED_RULE_H
#define KEELSTONE_MODEL_RULES_LEARNED_RULE_H

#include <string>

#include "settings/rule_settings.h"

namespace keelstone {

/// What a learning test looks at.
template <class FeatureType, class HistoryType>
struct LearningCase {
  const FeatureType& feature;
  const HistoryType* history;
  const RuleSettings& settings;
  bool isLessCount = false;  // for the kind that has a test of its own for short histories
};

/// What the rules that can be learned share. A kind has the test itself as `Fits(Case)`, and
/// UpdateRuleWith. Where no settings are handed in, the domain's are fetched, once a call.
template <class Base>
class LearnedRule : public Base {
 public:
  using Case = LearningCase<typename Base::Feature, typename Base::History>;

  bool CheckRule(const std::string& domainId) override {
    if (this->GetHisotryCount() == 0) return false;
    const auto settings = DomainRuleSettings(domainId);
    return settings && CheckRuleWith(*settings, domainId);
  }

  bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId) override {
    const auto* const feature = this->GetHisotryCount() == 0 ? nullptr : this->OwnFeature();
    return feature != nullptr &&
           Base::Kind::Fits(Case{*feature, this->OwnHistory(), settings, isLessCount_}) &&
           this->Accept(domainId);
  }

  bool UpdateRule() override {
    if (!this->GetRuleData()) return false;
    const auto settings = DomainRuleSettings(this->domainId_);
    return this->UpdateRuleWith(settings.get());
  }

 protected:
  bool isLessCount_ = false;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_LEARNED_RULE_H
