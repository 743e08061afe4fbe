#ifndef KEELSTONE_MODEL_RULES_LEARNED_RULE_H
#define KEELSTONE_MODEL_RULES_LEARNED_RULE_H

#include <string>

#include "keelstone/rule_settings.h"

namespace keelstone {

/// What the rules that can be learned share: without settings at hand their domain's are
/// fetched, once an operation. A kind derived from it has CheckRuleWith and UpdateRuleWith.
template <class Base>
class LearnedRule : public Base {
 public:
  using Base::Base;

  bool CheckRule(const std::string& domainId) override {
    if (this->GetHisotryCount() == 0) return false;
    const auto settings = DomainRuleSettings(domainId);
    return settings && this->CheckRuleWith(*settings, domainId);
  }

  bool UpdateRule() override {
    if (!this->GetRuleData()) return false;
    const auto settings = DomainRuleSettings(this->domainId_);
    return this->UpdateRuleWith(settings.get());
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_LEARNED_RULE_H
