#include "engine/explainer.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "base/text/numbers.h"
#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "keelstone/text_rule_data.h"

namespace keelstone {

namespace {

constexpr std::size_t kLongestHistoryText = 1024;  // bytes of a text that are kept

template <class T>
JsonValue NumberValue(T value) {
  return value;
}
/// As histories and parameters show it.
JsonValue NumberValue(float value) { return AsWritten(value); }

template <class Point>
JsonValue ShortValue(const Point& point) {
  if constexpr (std::is_base_of_v<KSDataPoint<std::string>, Point>) {
    return CutText(point.value, kLongestHistoryText);
  } else {
    return NumberValue(point.value);
  }
}

/// Takes what a history of these points holds; false when it is of others.
template <class Point>
bool TakeHistory(const HistoryDataBase* history, bool withoutNewest, KSAlertExplanation& alert) {
  const auto* const typed = dynamic_cast<const PointHistory<Point>*>(history);
  if (typed == nullptr) return false;
  const std::vector<Point>& points = typed->points();
  const std::size_t count = points.size() - (withoutNewest && !points.empty() ? 1 : 0);
  alert.historyPoints = static_cast<std::int64_t>(count);
  if (count == 0) return true;
  alert.firstTime = points.front().time;
  alert.lastTime = points[count - 1].time;
  const std::size_t shown = std::min(count, KSAlertExplanation::kMostLastValues);
  for (std::size_t i = count - shown; i < count; ++i) {
    alert.lastValues.push_back({points[i].time, ShortValue(points[i])});
  }
  return true;
}

template <class Point>
bool TakeValue(const KSDataBase* point, JsonValue& value) {
  const auto* const typed = dynamic_cast<const Point*>(point);
  if (typed == nullptr) return false;
  if constexpr (std::is_base_of_v<KSDataPoint<std::string>, Point>) {
    value = typed->value;
  } else {
    value = NumberValue(typed->value);
  }
  return true;
}

/// The golden table's content: the rule's own when it was learned just now, else that of
/// the newest table in the history that has the digest. Empty when neither is there.
std::shared_ptr<const TableContent> GoldenContent(const IRuleBase& rule) {
  const auto data = rule.GetRuleData();
  const auto* const expected = dynamic_cast<const TablMd5EqualData*>(data.get());
  if (expected == nullptr) return nullptr;
  if (expected->golden.time >= 0 && expected->golden.value == expected->hashCmp) {
    return expected->golden.content;
  }
  const auto* const tables = dynamic_cast<const TableHistoryData*>(rule.LentHistory().get());
  if (tables == nullptr) return nullptr;
  const auto& points = tables->points();
  const auto newest = std::find_if(points.rbegin(), points.rend(), [expected](const auto& point) {
    return point.value == expected->hashCmp;
  });
  return newest == points.rend() ? nullptr : newest->content;
}

std::optional<KSTableChanges> ChangesOf(const Explainer::Case& judged) {
  const std::shared_ptr<const TableContent> golden = GoldenContent(judged.rule);
  if (!golden) return std::nullopt;
  const std::optional<std::string> text = golden->GetTableText();
  JsonValue table;
  if (!text || !JsonReader::Parse(*text, table)) return std::nullopt;
  return KSTableChanges::Between(table, judged.variable.value, golden->hashColumns);
}

void Explain(const Explainer::Case& judged, KSAlertExplanation& alert) {
  const VarInfo& variable = judged.variable;
  alert.variableName = variable.variableName;
  alert.interfaceValue = variable.interfaceValue;
  alert.time = judged.time;
  alert.dataType = static_cast<EnumKSDataType>(variable.dataType);
  alert.ruleType = judged.rule.GetType();
  alert.ruleGenerateType = judged.generateType;
  alert.ruleParam = judged.rule.GetRuleParam();
  alert.expected = KSExpectation::Of(alert.ruleType, alert.ruleParam, alert.dataType);
  alert.observedText = variable.valueText;
  if (judged.isLearnedNow) alert.learnedTime = judged.time;

  const KSDataBase* const point = judged.point.get();
  TakeValue<KSDataPoint<std::int64_t>>(point, alert.observed) ||
      TakeValue<KSDataPoint<float>>(point, alert.observed) ||
      TakeValue<KSDataPoint<double>>(point, alert.observed) ||
      TakeValue<KSDataPoint<std::string>>(point, alert.observed);

  const HistoryDataBase* const history = judged.rule.LentHistory().get();
  const bool withoutNewest = judged.isInHistory;
  TakeHistory<KSDataPoint<std::int64_t>>(history, withoutNewest, alert) ||
      TakeHistory<KSDataPoint<float>>(history, withoutNewest, alert) ||
      TakeHistory<KSDataPoint<double>>(history, withoutNewest, alert) ||
      TakeHistory<KSDataPoint<std::string>>(history, withoutNewest, alert) ||
      TakeHistory<KSTableDataPoint>(history, withoutNewest, alert);
  if (alert.dataType == KSDataTable) alert.table = ChangesOf(judged);
}

}  // namespace

void Explainer::Fits(const Case& judged) {
  if (judged.rule.Judges(judged.point)) verdict_ = kVerdictFits;
}

void Explainer::Breaks(const Case& judged) {
  KSAlertExplanation& explanation = explanations_.emplace_back();
  verdict_ = kVerdictAlert;
  try {
    Explain(judged, explanation);
  } catch (const std::exception&) {
    // Only for want of memory. The alert is raised all the same; what was explained stands.
  }
}

}  // namespace keelstone
