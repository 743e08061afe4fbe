#include "engine/workbench.h"

#include <cstdint>

#include "keelstone/algorithm_manager.h"
#include "model/history/cast_to.h"

namespace keelstone {

std::shared_ptr<RuleDefinitionData> Workbench::Record() {
  if (!record_ || record_.use_count() > 1) {
    record_ = std::make_shared<RuleDefinitionData>();
  } else {
    // The texts keep their memory.
    RuleDefinitionData& record = *record_;
    record.ruleParam.clear();
    record.history.clear();
    record.ruleType = kRuleTypeNone;
    record.ruleGenerateType = kRuleLearned;
    record.variableType = -1;
  }
  return record_;
}

std::shared_ptr<HistoryDataBase> Workbench::History(const PackedHistory& stored,
                                                    EnumKSDataType dataType) {
  return stored.OpenInto(history_, dataType);
}

template <class T>
std::shared_ptr<KSDataFeature> Workbench::NumberFeature(
    const std::shared_ptr<HistoryDataBase>& history) {
  using Feature = KSNumercialDataFeature<T>;
  auto* const spare = feature_.use_count() == 1 ? CastTo<Feature>(feature_.get()) : nullptr;
  if (spare != nullptr) {
    spare->Clear();
  } else {
    feature_ = std::make_shared<Feature>();
  }
  feature_->Calculate(history);
  return feature_;
}

std::shared_ptr<KSDataFeature> Workbench::Feature(EnumKSDataType dataType,
                                                  const std::shared_ptr<HistoryDataBase>& history) {
  switch (dataType) {
    case KSDataInt64:
      return NumberFeature<std::int64_t>(history);
    case KSDataFloat:
      return NumberFeature<float>(history);
    case KSDataDouble:
      return NumberFeature<double>(history);
    default:
      return FeatureOf(dataType, history);
  }
}

}  // namespace keelstone
