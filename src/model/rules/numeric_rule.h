#ifndef KEELSTONE_MODEL_RULES_NUMERIC_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_RULE_H

#include <memory>
#include <string>
#include <utility>

#include "keelstone/data_feature.h"
#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_data.h"
#include "model/history/cast_to.h"
#include "model/history/numeric_traits.h"
#include "model/rules/learned_rule.h"

namespace keelstone {

// How each kind of rule data reads its parameter. A refused conversion throws JsonError
// before anything is changed.
template <class T>
void ReadParam(const JsonValue& param, IntEqualData<T>& data) {
  data.value = NumericTraits<T>::Read(param["ruleParam"]);
}

template <class T>
void ReadParam(const JsonValue& param, IntEnumData<T>& data) {
  const JsonValue& list = param["ruleParam"];
  boost::container::flat_set<T> values;
  if (list.isArray()) {
    for (const JsonValue& value : list) values.insert(NumericTraits<T>::Read(value));
  }
  data.values = std::move(values);
}

template <class T>
void ReadParam(const JsonValue& param, IntRangeData<T>& data) {
  const T maxValue = NumericTraits<T>::Read(param["maxValue"]);
  data.minValue = NumericTraits<T>::Read(param["minValue"]);
  data.maxValue = maxValue;
}

/// What all numeric rules share: the value type T, the class of their rule data, reading
/// a stored definition, and the preconditions of learning.
template <class T, template <class> class DataTemplate>
class NumericRule : public IRuleBase {
 public:
  using Traits = NumericTraits<T>;
  using Data = DataTemplate<T>;
  using Point = KSDataPoint<T>;

  using IRuleBase::IRuleBase;

  void Init(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
            const std::string& domainId) override {
    if (!ruleDefine) return;
    const std::string& text = ruleDefine->history;
    TakeDefinition(ruleDefine, domainId, [&text](HistoryDataBase& history) {
      return text.empty() || history.FromString(text);
    });
  }

  void InitWithHistory(const std::shared_ptr<RuleDefinitionData>& ruleDefine, std::string_view text,
                       const std::string& domainId) override {
    if (!ruleDefine) return;
    TakeDefinition(ruleDefine, domainId, [text](HistoryDataBase& history) {
      return text.empty() || history.FromLastingText(text);
    });
  }

  /// What follows a learning test that fits: rule data with an empty parameter. True.
  bool Accept(const std::string& domainId) {
    ruleData_ = BuildData({});
    domainId_ = domainId;
    return true;
  }

  bool Judges(const std::shared_ptr<KSDataBase>& point) const override {
    return RuleData() != nullptr && AsPoint(point) != nullptr;
  }

 protected:
  /// Told whether a parameter text that parses has the member "ruleParam".
  virtual void NoteHasParameter(bool) {}

  /// The feature to learn from, or nullptr when there is nothing to learn from.
  const KSNumercialDataFeature<T>* Lesson() const {
    return GetHisotryCount() == 0 ? nullptr : Feature();
  }

  const NumercialHistoryData<T>* History() const {
    return dynamic_cast<const NumercialHistoryData<T>*>(history_.get());
  }
  const KSNumercialDataFeature<T>* Feature() const {
    return CastTo<const KSNumercialDataFeature<T>>(GetDataFeature().get());
  }
  Data* RuleData() const { return CastTo<Data>(ruleData_.get()); }
  static const Point* AsPoint(const std::shared_ptr<KSDataBase>& point) {
    return CastTo<const Point>(point.get());
  }

  /// Makes the point the golden one when the rule data and the point are of this type and
  /// `fits(data, value)` says so.
  template <class Predicate>
  bool TakeGoldenIf(const std::shared_ptr<KSDataBase>& point, Predicate fits) {
    Data* const data = RuleData();
    const Point* const number = AsPoint(point);
    if (data == nullptr || number == nullptr || !fits(*data, number->value)) return false;
    data->golden = *number;
    return true;
  }

  /// Whether `breaks(data, value)` for rule data and a point of this type.
  template <class Predicate>
  bool AlertIf(const std::shared_ptr<KSDataBase>& point, Predicate breaks) const {
    const Data* const data = RuleData();
    const Point* const number = AsPoint(point);
    return data != nullptr && number != nullptr && breaks(*data, number->value);
  }

 private:
  template <class ReadHistory>
  void TakeDefinition(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                      const std::string& domainId, ReadHistory readHistory) {
    const auto history = std::make_shared<typename Traits::History>();
    history_ = history;
    if (!readHistory(*history)) return;
    isFeatureDue_ = true;
    ruleData_ = BuildData(ruleDefine->ruleParam);
    ruleDefine_ = ruleDefine;
    domainId_ = domainId;
  }

  std::shared_ptr<KSDataFeature> MakeFeature() const override {
    auto feature = std::make_shared<KSNumercialDataFeature<T>>();
    feature->Calculate(history_);
    return feature;
  }

  /// Rule data with the starting values, then with the parameter as far as the text gives
  /// it.
  std::shared_ptr<Data> BuildData(const std::string& paramText) {
    auto data = std::make_shared<Data>();
    if (paramText.empty()) return data;
    if (data->TakeOwnText(paramText)) {
      NoteHasParameter(paramText.starts_with("{\"ruleParam\":"));
      return data;
    }
    JsonValue param;
    if (!JsonReader::Parse(paramText, param)) return data;
    try {
      const JsonValue& constant = param;
      NoteHasParameter(constant.isObject() && constant.isMember("ruleParam"));
      ReadParam(constant, *data);
    } catch (const JsonError&) {
      // The starting values stand.
    }
    return data;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_NUMERIC_RULE_H
