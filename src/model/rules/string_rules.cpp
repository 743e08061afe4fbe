#include "model/rules/string_rules.h"

#include <set>
#include <string>
#include <utility>

#include "base/text/strings.h"

namespace keelstone {

bool KSStringEqualRule::Fits(const Case& lesson) {
  return Lasts(lesson, lesson.settings.Of<kStrEqual>());
}

bool KSStringEqualRule::UpdateRuleWith(const RuleSettings* settings) {
  StrEqualData* const data = RuleData();
  const auto* const stable =
      StableText(OwnHistory(), settings == nullptr ? nullptr : settings->Of<kStrEqual>());
  if (data == nullptr || stable == nullptr) return false;
  data->ruleParam = stable->value;
  data->golden = *stable;
  return true;
}

bool KSStringEqualRule::Breaks(const StrEqualData& data, std::string_view text) {
  constexpr std::string_view kBlanks = " \n";
  return Trim(text, kBlanks) != Trim(data.ruleParam, kBlanks);
}

bool KSStringEnumRule::Fits(const Case& lesson) {
  const KSStrEnumRuleSetting* const settings = lesson.settings.Of<kStrEnum>();
  const KSStringDataFeature& feature = lesson.feature;
  return settings != nullptr && feature.count >= settings->dataCountMinLimit &&
         static_cast<std::int64_t>(feature.valueCounts.size()) <= settings->valueStatusCount &&
         static_cast<double>(feature.changeFrequency) >= settings->changeFrequency;
}

bool KSStringEnumRule::UpdateRuleWith(const RuleSettings* settings) {
  StrEnumData* const data = RuleData();
  const KSStringDataFeature* const feature = OwnFeature();
  const StrHisotryData* const history = OwnHistory();
  const auto* const own = settings == nullptr ? nullptr : settings->Of<kStrEnum>();
  if (data == nullptr || feature == nullptr || history == nullptr || own == nullptr) return false;
  std::set<std::string> values;
  FrequentValues(feature->valueCounts, own->alertThreshold, values);
  if (values.empty()) return false;
  data->values = std::move(values);
  const auto* const golden = NewestFittingPoint(
      history->points(), [data](const std::string& value) { return data->values.contains(value); });
  if (golden == nullptr) return false;
  data->golden = *golden;
  return true;
}

bool KSStringEnumRule::Breaks(const StrEnumData& data, std::string_view text) {
  return !data.values.contains(std::string(text));
}

bool KSStrNoEqualRule::Breaks(const StrEnumData& data, std::string_view text) {
  return data.values.contains(std::string(text));
}

}  // namespace keelstone
