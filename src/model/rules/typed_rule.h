#ifndef KEELSTONE_MODEL_RULES_TYPED_RULE_H
#define KEELSTONE_MODEL_RULES_TYPED_RULE_H

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "keelstone/rule_base.h"
#include "model/history/cast_to.h"
#include "model/rules/rule_class_of.h"
#include "records/rule_kind_rows.h"

namespace keelstone {

/// What all rules share: the types of their data, history and statistics, and the judgement of
/// a point. The kind `Rule` says by `Breaks(data, value)` what breaks it, and by its member
/// `kType` which rule it is.
template <class Rule, class DataType, class HistoryType, class FeatureType>
class TypedRule : public IRuleBase {
 public:
  using Kind = Rule;
  using Data = DataType;
  using History = HistoryType;
  using Feature = FeatureType;
  using Point = typename std::decay_t<decltype(std::declval<History>().points())>::value_type;

  TypedRule() : IRuleBase(Rule::kType) {}

  bool Judges(const std::shared_ptr<KSDataBase>& point) const override {
    return RuleData() != nullptr && AsPoint(point) != nullptr && Self().IsComplete();
  }

  bool CheckAlert(const std::shared_ptr<KSDataBase>& point) override {
    const Data* const data = RuleData();
    const Point* const seen = AsPoint(point);
    return data != nullptr && seen != nullptr && Self().IsComplete() &&
           Rule::Breaks(*data, seen->value);
  }

  bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) override {
    Data* const data = RuleData();
    const Point* const seen = AsPoint(point);
    if (data == nullptr || seen == nullptr || !Self().IsComplete() ||
        !Rule::IsGolden(*data, seen->value)) {
      return false;
    }
    data->golden = *seen;
    return true;
  }

  /// Whether a value becomes the golden one; most kinds take what fits.
  template <class Value>
  static bool IsGolden(const Data& data, const Value& value) {
    return !Rule::Breaks(data, value);
  }
  /// Whether the rule has what it compares with.
  bool IsComplete() const { return true; }

  /// What follows a learning test that fits: rule data with an empty parameter. True.
  bool Accept(const std::string& domainId) {
    ruleData_ = std::make_shared<Data>();
    domainId_ = domainId;
    return true;
  }

  static const History* AsHistory(const HistoryDataBase* history) {
    return dynamic_cast<const History*>(history);
  }
  static const Feature* AsFeature(const KSDataFeature* feature) {
    return CastTo<const Feature>(feature);
  }

 protected:
  Data* RuleData() const { return CastTo<Data>(ruleData_.get()); }
  static const Point* AsPoint(const std::shared_ptr<KSDataBase>& point) {
    return CastTo<const Point>(point.get());
  }
  const History* OwnHistory() const { return AsHistory(history_.get()); }
  const Feature* OwnFeature() const { return AsFeature(GetDataFeature().get()); }

 private:
  const Rule& Self() const { return static_cast<const Rule&>(*this); }

  std::shared_ptr<KSDataFeature> MakeFeature() const override {
    auto feature = std::make_shared<Feature>();
    feature->Calculate(history_);
    return feature;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_TYPED_RULE_H
