#ifndef KEELSTONE_MODEL_RULES_TEXT_RULE_H
#define KEELSTONE_MODEL_RULES_TEXT_RULE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "keelstone/history_data.h"
#include "keelstone/logger.h"
#include "keelstone/text_feature.h"
#include "keelstone/text_rule_data.h"
#include "model/history/history_steps.h"
#include "model/rules/learned_rule.h"
#include "model/rules/typed_rule.h"

namespace keelstone {

/// The newest point that ends a run of equal texts long enough for these settings (of three
/// without settings); nullptr when there is none.
template <class History>
auto StableText(const History* history, const KSLastingTextSetting* settings)
    -> decltype(&history->points().front()) {
  if (history == nullptr) return nullptr;
  return NewestStablePoint(history->points(),
                           settings == nullptr ? 3 : settings->countEqualValueLimit);
}

/// The test of the kinds that expect one lasting text.
template <class Case>
bool Lasts(const Case& lesson, const KSLastingTextSetting* settings) {
  const auto& feature = lesson.feature;
  return settings != nullptr && feature.count > settings->dataCountMinLimit &&
         static_cast<std::int64_t>(feature.valueCounts.size()) <= settings->valueStatusCount &&
         static_cast<double>(feature.changeFrequency) < settings->changeFrequency &&
         StableText(lesson.history, settings) != nullptr;
}

/// What the rules of strings and tables share: reading a stored definition. A history that is
/// refused leaves the rule with an empty one, and an error line with the kind's `kInit` for
/// its function and `kSourceFile` for its file.
template <class Rule, class DataType, class HistoryType, class FeatureType>
class TextRule : public TypedRule<Rule, DataType, HistoryType, FeatureType> {
 public:
  void Init(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
            const std::string& domainId) override {
    if (!ruleDefine) return;
    const std::string& text = ruleDefine->history;
    TakeDefinition(ruleDefine, text, domainId,
                   [&text](HistoryType& history) { return history.FromString(text); });
  }

  void InitWithHistory(const std::shared_ptr<RuleDefinitionData>& ruleDefine, std::string_view text,
                       const std::string& domainId) override {
    if (!ruleDefine) return;
    TakeDefinition(ruleDefine, text, domainId,
                   [text](HistoryType& history) { return history.FromLastingText(text); });
  }

  void InitWithPoints(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                      const std::shared_ptr<HistoryDataBase>& history,
                      const std::string& domainId) override {
    if (ruleDefine) Complete(ruleDefine, history, domainId);
  }

 private:
  template <class ReadHistory>
  void TakeDefinition(const std::shared_ptr<RuleDefinitionData>& ruleDefine, std::string_view text,
                      const std::string& domainId, ReadHistory readHistory) {
    auto history = std::make_shared<HistoryType>();
    if (!text.empty() && !readHistory(*history)) {
      KS_LOG("FS_Keelstone", Rule::kInit, Rule::kSourceFile, kLogError,
             "Failed to load history data: %s", std::string(text).c_str());
      history = std::make_shared<HistoryType>();
    }
    Complete(ruleDefine, history, domainId);
  }

  void Complete(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                const std::shared_ptr<HistoryDataBase>& history, const std::string& domainId) {
    this->history_ = history;
    this->isFeatureDue_ = true;
    const auto data = std::make_shared<DataType>();
    data->ParseParam(ruleDefine->ruleParam);
    this->ruleData_ = data;
    this->ruleDefine_ = ruleDefine;
    this->domainId_ = domainId;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_TEXT_RULE_H
