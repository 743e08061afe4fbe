#include "keelstone/algorithm_manager.h"

#include "keelstone/text_feature.h"

namespace keelstone {

namespace {

std::shared_ptr<KSDataFeature> MakeFeature(EnumKSDataType dataType) {
  switch (dataType) {
    case KSDataInt64:
      return std::make_shared<KSNumercialDataFeature<std::int64_t>>();
    case KSDataFloat:
      return std::make_shared<KSNumercialDataFeature<float>>();
    case KSDataDouble:
      return std::make_shared<KSNumercialDataFeature<double>>();
    case KSDataString:
      return std::make_shared<KSStringDataFeature>();
    case KSDataTable:
      return std::make_shared<KSTableDataFeature>();
    default:
      return nullptr;
  }
}

}  // namespace

std::shared_ptr<KSDataFeature> FeatureOf(EnumKSDataType dataType,
                                         const std::shared_ptr<HistoryDataBase>& history) {
  std::shared_ptr<KSDataFeature> feature = MakeFeature(dataType);
  feature->Calculate(history);
  return feature;
}

std::shared_ptr<HistoryDataBase> MakeHistory(EnumKSDataType dataType) {
  switch (dataType) {
    case KSDataInt64:
      return std::make_shared<IntHistoryData>();
    case KSDataFloat:
      return std::make_shared<FloatHistoryData>();
    case KSDataDouble:
      return std::make_shared<DoubleHistoryData>();
    case KSDataString:
      return std::make_shared<StrHisotryData>();
    case KSDataTable:
      return std::make_shared<TableHistoryData>();
    default:
      return nullptr;
  }
}

KSRuleAlgMgr* KSRuleAlgMgr::Instance() {
  static auto* const instance = new KSRuleAlgMgr;
  return instance;
}

KSRuleAlgMgr::KSRuleAlgMgr()
    : stringAlg_(std::make_shared<StrRuleCalculateAlg>()),
      numericAlg_(std::make_shared<NumicalRuleCalculateAlg>()),
      tableAlg_(std::make_shared<TableRuleCalculateAlg>()) {}

const std::shared_ptr<RuleCalculateAlgBase>& KSRuleAlgMgr::GetAlg(EnumAlgType type) const {
  static const std::shared_ptr<RuleCalculateAlgBase> kNone;
  switch (type) {
    case KSAlgNumerical:
      return numericAlg_;
    case KSAlgString:
      return stringAlg_;
    case KSAlgTable:
      return tableAlg_;
  }
  return kNone;
}

std::shared_ptr<IRuleBase> KSRuleAlgMgr::CalculateRule(
    const std::shared_ptr<RuleDefinitionData>& ruleDefine,
    const std::shared_ptr<HistoryDataBase>& history, const std::shared_ptr<KSDataFeature>& feature,
    EnumKSDataType dataType, const std::string& domainId, EnumAlgType algType) {
  const auto& alg = GetAlg(algType);
  return alg ? alg->CalculateRule(ruleDefine, history, feature, dataType, domainId) : nullptr;
}

std::shared_ptr<IRuleBase> KSRuleAlgMgr::GetRuleByType(EnumAlgType algType, EnumRuleType ruleType,
                                                       EnumKSDataType dataType) {
  const auto& alg = GetAlg(algType);
  return alg ? alg->GetRuleByType(ruleType, dataType) : nullptr;
}

void KSRuleAlgMgr::GetHistoryAndDataFeatrue(const std::string& historyText, EnumKSDataType dataType,
                                            std::shared_ptr<HistoryDataBase>& history,
                                            std::shared_ptr<KSDataFeature>& feature) {
  const std::shared_ptr<HistoryDataBase> made = MakeHistory(dataType);
  if (!made) return;
  history = made;
  if (made->FromString(historyText)) feature = FeatureOf(dataType, made);
}

void KSRuleAlgMgr::ReadHistory(std::string_view lastingText, EnumKSDataType dataType,
                               std::shared_ptr<HistoryDataBase>& history,
                               std::shared_ptr<KSDataFeature>& feature) {
  const std::shared_ptr<HistoryDataBase> made = MakeHistory(dataType);
  if (!made) return;
  history = made;
  if (made->FromLastingText(lastingText)) feature = FeatureOf(dataType, made);
}

}  // namespace keelstone
