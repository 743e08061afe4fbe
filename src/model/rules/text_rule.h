#ifndef KEELSTONE_MODEL_RULES_TEXT_RULE_H
#define KEELSTONE_MODEL_RULES_TEXT_RULE_H

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "keelstone/history_data.h"
#include "keelstone/rule_base.h"
#include "keelstone/text_feature.h"
#include "keelstone/text_rule_data.h"
#include "model/history/history_steps.h"
#include "model/rules/learned_rule.h"

namespace keelstone {

/// What the rules of strings and tables share: reading a stored definition, the
/// preconditions of learning, and the judgement of a point.
template <class HistoryType, class FeatureType, class DataType>
class TextRule : public IRuleBase {
 public:
  using Data = DataType;

  using IRuleBase::IRuleBase;

  /// A history that is refused leaves the rule with an empty one.
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

  bool Judges(const std::shared_ptr<KSDataBase>& point) const override {
    using Point = typename std::decay_t<decltype(std::declval<HistoryType>().points())>::value_type;
    return RuleData() != nullptr && dynamic_cast<const Point*>(point.get()) != nullptr;
  }

 protected:
  /// Writes one error line for a history text that was refused.
  virtual void LogRefusedHistory(const std::string& text) const = 0;

  const HistoryType* History() const { return dynamic_cast<const HistoryType*>(history_.get()); }
  const FeatureType* Feature() const {
    return dynamic_cast<const FeatureType*>(GetDataFeature().get());
  }
  DataType* RuleData() const { return dynamic_cast<DataType*>(ruleData_.get()); }

  /// The feature to learn from, or nullptr when there is nothing to learn from.
  const FeatureType* Lesson() const { return GetHisotryCount() == 0 ? nullptr : Feature(); }

  bool Accept(const std::string& domainId) {
    ruleData_ = std::make_shared<DataType>();
    domainId_ = domainId;
    return true;
  }

  /// The newest point that ends a run of equal texts long enough for these settings (of
  /// three without settings); nullptr when there is none.
  auto StablePoint(const KSLastingTextSetting* settings) const
      -> decltype(&static_cast<const HistoryType*>(nullptr)->points().front()) {
    const HistoryType* const history = History();
    if (history == nullptr) return nullptr;
    return NewestStablePoint(history->points(),
                             settings == nullptr ? 3 : settings->countEqualValueLimit);
  }

  /// The test of the kinds that expect one lasting text.
  bool Lasts(const KSLastingTextSetting* settings) const {
    const FeatureType* const feature = Lesson();
    return feature != nullptr && settings != nullptr &&
           feature->count > settings->dataCountMinLimit &&
           static_cast<std::int64_t>(feature->valueCounts.size()) <= settings->valueStatusCount &&
           static_cast<double>(feature->changeFrequency) < settings->changeFrequency &&
           StablePoint(settings) != nullptr;
  }

  /// Makes the point the golden one when `fits(data, point)`.
  template <class Point, class Predicate>
  bool TakeGoldenIf(const std::shared_ptr<KSDataBase>& point, Predicate fits) {
    DataType* const data = RuleData();
    const auto* const text = dynamic_cast<const Point*>(point.get());
    if (data == nullptr || text == nullptr || !fits(*data, *text)) return false;
    data->golden = *text;
    return true;
  }

  /// Whether `breaks(data, point)` for rule data and a point of this type.
  template <class Point, class Predicate>
  bool AlertIf(const std::shared_ptr<KSDataBase>& point, Predicate breaks) const {
    const DataType* const data = RuleData();
    const auto* const text = dynamic_cast<const Point*>(point.get());
    return data != nullptr && text != nullptr && breaks(*data, *text);
  }

 private:
  template <class ReadHistory>
  void TakeDefinition(const std::shared_ptr<RuleDefinitionData>& ruleDefine, std::string_view text,
                      const std::string& domainId, ReadHistory readHistory) {
    auto history = std::make_shared<HistoryType>();
    if (!text.empty() && !readHistory(*history)) {
      LogRefusedHistory(std::string(text));
      history = std::make_shared<HistoryType>();
    }
    history_ = history;
    isFeatureDue_ = true;
    const auto data = std::make_shared<DataType>();
    data->ParseParam(ruleDefine->ruleParam);
    ruleData_ = data;
    ruleDefine_ = ruleDefine;
    domainId_ = domainId;
  }

  std::shared_ptr<KSDataFeature> MakeFeature() const override {
    auto feature = std::make_shared<FeatureType>();
    feature->Calculate(history_);
    return feature;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_TEXT_RULE_H
