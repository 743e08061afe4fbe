#include "model/rules/string_rules.h"

#include <set>
#include <utility>

#include "base/text/strings.h"
#include "keelstone/logger.h"

namespace keelstone {

namespace {

using Point = KSDataPoint<std::string>;

void LogRefused(const char* function, const std::string& text) {
  KS_LOG("FS_Keelstone", function, "ksstringrules", kLogError, "Failed to load history data: %s",
         text.c_str());
}

}  // namespace

bool KSStringEqualRule::CheckRuleWith(const RuleSettings& settings, const std::string& domainId) {
  return Lasts(settings.strEqual.get()) && Accept(domainId);
}

bool KSStringEqualRule::UpdateRuleWith(const RuleSettings* settings) {
  StrEqualData* const data = RuleData();
  const Point* const stable = StablePoint(settings == nullptr ? nullptr : settings->strEqual.get());
  if (data == nullptr || stable == nullptr) return false;
  data->ruleParam = stable->value;
  data->golden = *stable;
  return true;
}

bool KSStringEqualRule::CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) {
  return TakeGoldenIf<Point>(
      point, [](const StrEqualData& data, const Point& text) { return !Breaks(data, text.value); });
}

bool KSStringEqualRule::CheckAlert(const std::shared_ptr<KSDataBase>& point) {
  return AlertIf<Point>(
      point, [](const StrEqualData& data, const Point& text) { return Breaks(data, text.value); });
}

bool KSStringEqualRule::Breaks(const StrEqualData& data, std::string_view text) {
  constexpr std::string_view kBlanks = " \n";
  return Trim(text, kBlanks) != Trim(data.ruleParam, kBlanks);
}

bool KSStringEnumRule::CheckRuleWith(const RuleSettings& settings, const std::string& domainId) {
  const KSStringDataFeature* const feature = Lesson();
  if (feature == nullptr || !settings.strEnum) return false;
  const KSStrEnumRuleSetting& limits = *settings.strEnum;
  return feature->count >= limits.dataCountMinLimit &&
         static_cast<std::int64_t>(feature->valueCounts.size()) <= limits.valueStatusCount &&
         static_cast<double>(feature->changeFrequency) >= limits.changeFrequency &&
         Accept(domainId);
}

bool KSStringEnumRule::UpdateRuleWith(const RuleSettings* settings) {
  StrEnumData* const data = RuleData();
  const KSStringDataFeature* const feature = Feature();
  const StrHisotryData* const history = History();
  if (data == nullptr || feature == nullptr || history == nullptr || settings == nullptr ||
      !settings->strEnum) {
    return false;
  }
  std::set<std::string> values;
  FrequentValues(feature->valueCounts, settings->strEnum->alertThreshold, values);
  if (values.empty()) return false;
  data->values = std::move(values);
  const Point* const golden = NewestFittingPoint(
      history->points(), [data](const std::string& value) { return data->values.contains(value); });
  if (golden == nullptr) return false;
  data->golden = *golden;
  return true;
}

bool KSStringEnumRule::CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) {
  return TakeGoldenIf<Point>(
      point, [](const StrEnumData& data, const Point& text) { return !Breaks(data, text.value); });
}

bool KSStringEnumRule::CheckAlert(const std::shared_ptr<KSDataBase>& point) {
  return AlertIf<Point>(
      point, [](const StrEnumData& data, const Point& text) { return Breaks(data, text.value); });
}

bool KSStringEnumRule::Breaks(const StrEnumData& data, std::string_view text) {
  return !data.values.contains(std::string(text));
}

bool KSStrNoEqualRule::CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) {
  return TakeGoldenIf<Point>(
      point, [](const StrEnumData& data, const Point& text) { return !Breaks(data, text.value); });
}

bool KSStrNoEqualRule::CheckAlert(const std::shared_ptr<KSDataBase>& point) {
  return AlertIf<Point>(
      point, [](const StrEnumData& data, const Point& text) { return Breaks(data, text.value); });
}

bool KSStrNoEqualRule::Breaks(const StrEnumData& data, std::string_view text) {
  return data.values.contains(std::string(text));
}

void KSStringEqualRule::LogRefusedHistory(const std::string& text) const {
  LogRefused("KSStringEqualRule::Init", text);
}
void KSStringEnumRule::LogRefusedHistory(const std::string& text) const {
  LogRefused("KSStringEnumRule::Init", text);
}
void KSStrNoEqualRule::LogRefusedHistory(const std::string& text) const {
  LogRefused("KSStrNoEqualRule::Init", text);
}

}  // namespace keelstone
