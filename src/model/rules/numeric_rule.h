#ifndef KEELSTONE_MODEL_RULES_NUMERIC_RULE_H
#define KEELSTONE_MODEL_RULES_NUMERIC_RULE_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "keelstone/data_feature.h"
#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_data.h"
#include "model/history/numeric_traits.h"
#include "model/rules/learned_rule.h"
#include "model/rules/typed_rule.h"

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

/// What all numeric rules share: the value type T, the class of their rule data, and reading a
/// stored definition.
template <class Rule, class T, template <class> class DataTemplate>
class NumericRule
    : public TypedRule<Rule, DataTemplate<T>, NumercialHistoryData<T>, KSNumercialDataFeature<T>> {
 public:
  using Traits = NumericTraits<T>;
  using Data = DataTemplate<T>;

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

  void InitWithPoints(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                      const std::shared_ptr<HistoryDataBase>& history,
                      const std::string& domainId) override {
    if (!ruleDefine) return;
    this->history_ = history;
    Complete(ruleDefine, domainId);
  }

 protected:
  /// Told whether a parameter text that parses has the member "ruleParam".
  virtual void NoteHasParameter(bool) {}

 private:
  template <class ReadHistory>
  void TakeDefinition(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                      const std::string& domainId, ReadHistory readHistory) {
    const auto history = std::make_shared<typename Traits::History>();
    this->history_ = history;
    if (readHistory(*history)) Complete(ruleDefine, domainId);
  }

  void Complete(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                const std::string& domainId) {
    this->isFeatureDue_ = true;
    this->ruleData_ = BuildData(ruleDefine->ruleParam);
    this->ruleDefine_ = ruleDefine;
    this->domainId_ = domainId;
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
