#include "keelstone/rule_base.h"

#include <utility>

namespace keelstone {

// Both rules share the history from now on, and either may add to it.
IRuleBase::IRuleBase(const IRuleBase& other)
    : history_(other.GetHistoryData()),
      ruleData_(other.ruleData_),
      feature_(other.feature_),
      ruleDefine_(other.ruleDefine_),
      domainId_(other.domainId_),
      ruleType_(other.ruleType_) {}

IRuleBase& IRuleBase::operator=(const IRuleBase& other) {
  if (this == &other) return *this;
  history_ = other.GetHistoryData();
  ruleData_ = other.ruleData_;
  feature_ = other.feature_;
  isFeatureDue_ = false;
  ruleDefine_ = other.ruleDefine_;
  domainId_ = other.domainId_;
  ruleType_ = other.ruleType_;
  return *this;
}

IRuleBase::~IRuleBase() = default;

void IRuleBase::Init(const std::shared_ptr<RuleDefinitionData>&, const std::string&) {}
void IRuleBase::InitWithHistory(const std::shared_ptr<RuleDefinitionData>&, std::string_view,
                                const std::string&) {}
void IRuleBase::InitWithPoints(const std::shared_ptr<RuleDefinitionData>&,
                               const std::shared_ptr<HistoryDataBase>&, const std::string&) {}
bool IRuleBase::CheckRule(const std::string&) { return false; }
bool IRuleBase::CheckRuleWith(const RuleSettings&, const std::string&) { return false; }
bool IRuleBase::UpdateRule() { return false; }
bool IRuleBase::UpdateRuleWith(const RuleSettings*) { return false; }
bool IRuleBase::CheckGoldenValue(const std::shared_ptr<KSDataBase>&) { return false; }
bool IRuleBase::CheckAlert(const std::shared_ptr<KSDataBase>&) { return false; }
bool IRuleBase::Judges(const std::shared_ptr<KSDataBase>&) const { return false; }
void IRuleBase::UpdateParam(const std::shared_ptr<KSDataBase>&) {}
void IRuleBase::setIsLessCountCondition(bool) {}

bool IRuleBase::IsDynamic() const {
  return !ruleDefine_ || ruleDefine_->ruleGenerateType == kRuleLearned;
}

bool IRuleBase::IsEqual(const IRuleBase* other) const {
  if (other == nullptr || GetType() != other->GetType()) return false;
  return ruleData_ && other->ruleData_ && ruleData_->IsEqual(other->ruleData_.get());
}

void IRuleBase::SetHistoryAndDataFeature(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                         const std::shared_ptr<HistoryDataBase>& history,
                                         const std::shared_ptr<KSDataFeature>& feature) {
  ruleDefine_ = ruleDefine;
  history_ = history;
  feature_ = feature;
  isFeatureDue_ = false;
}

std::shared_ptr<HistoryDataBase> IRuleBase::GetHistoryData() const {
  GetDataFeature();
  return history_;
}

std::shared_ptr<KSDataFeature> IRuleBase::GetDataFeature() const {
  if (std::exchange(isFeatureDue_, false)) feature_ = MakeFeature();
  return feature_;
}

std::shared_ptr<KSDataFeature> IRuleBase::MakeFeature() const { return nullptr; }

std::int32_t IRuleBase::GetHisotryCount() const { return history_ ? history_->GetDataCount() : 0; }

std::string IRuleBase::GetRuleParam() const {
  return ruleData_ ? ruleData_->ParamToString() : std::string();
}

std::string IRuleBase::GetRuleKSValue() const {
  return ruleData_ ? ruleData_->GetGlodenValue() : std::string();
}

std::int64_t IRuleBase::GetRuleKSValueTime() const {
  return ruleData_ ? ruleData_->GetGlodenValueTime() : 0;
}

std::shared_ptr<RuleDefinitionData> IRuleBase::GetRuleDefineData() {
  if (!ruleDefine_) return nullptr;
  ruleDefine_->ruleType = GetType();
  ruleDefine_->ruleParam = GetRuleParam();
  if (history_) history_->WriteTo(ruleDefine_->history);
  return ruleDefine_;
}

}  // namespace keelstone
