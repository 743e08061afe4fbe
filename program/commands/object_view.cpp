#include "program/commands/object_view.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "keelstone/algorithm_manager.h"
#include "keelstone/clock.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/explanation.h"
#include "keelstone/ini_reader.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_kinds.h"
#include "keelstone/setting_paths.h"
#include "program/commands/known_variable.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

constexpr const char* kIniFile = "fix_frontserver.ini";
constexpr int kDefaultInterval = 1800;  // s

ShownSetting ViewInterval() {
  const auto read = [](int otherwise) {
    return IniReader::GetInt("Keelstone", "IntervalTime", otherwise, kIniFile);
  };
  const int value = read(kDefaultInterval);
  const bool isGiven = value != kDefaultInterval || read(kDefaultInterval + 1) == value;
  return {"IntervalTime", value, isGiven ? kIniFile : "default"};
}

ShownSetting ViewRow(const JsonValue& stored, const char* name, std::int32_t inForce) {
  const bool isDefault = !stored.isNull() && stored == DefaultSetting(name);
  return {name, inForce, stored.isNull() ? "absent" : isDefault ? "default" : "domain"};
}

const JsonValue* FindMember(const JsonValue& document, const std::vector<std::string>& members) {
  const JsonValue* place = &document;
  for (const std::string& member : members) {
    place = place->find(member);
    if (place == nullptr) return nullptr;
  }
  return place;
}

/// The general settings that a learned rule of the type is judged and learned by.
std::vector<ShownSetting> SettingsOf(const RuleKind& rule, const JsonValue& stored) {
  const std::string start = std::string(rule.name) + ".";
  const JsonValue defaults = DefaultGeneralSettings();
  std::vector<ShownSetting> settings;
  for (const SettingPath& path : SettingPaths()) {
    const bool isOwn = !path.members.empty() && path.path.starts_with(start);
    const bool isLent = rule.lentSetting != nullptr && path.path == rule.lentSetting;
    const bool isUnread = rule.isIntervalLent && path.path == start + "timeIntervalLimit";
    if ((!isOwn && !isLent) || isUnread) continue;
    const JsonValue* const value = FindMember(stored, path.members);
    const JsonValue* const usual = FindMember(defaults, path.members);
    if (value == nullptr) {
      settings.push_back({path.path, 0, "absent"});
    } else {
      const bool isDefault = usual != nullptr && *value == *usual;
      settings.push_back({path.path, *value, isDefault ? "default" : "domain"});
    }
  }
  return settings;
}

/// What definition, type code and parameter say where no history does.
EnumKSDataType TypeWithoutHistory(const DomainView& domain, const StoredObject& stored,
                                  const JsonValue& parameter) {
  RuleDefinitionData definition;
  const bool isDefined =
      domain.data->GetRuleDefinitionData(definition, stored.key[4], stored.key[2], "",
                                         kVariableSourceParser) < 0;
  for (const int code : {stored.variableType, isDefined ? definition.variableType : 0}) {
    if (const EnumKSDataType type = TypeOfCode(code); type != KSDataUnknown) return type;
  }
  const RuleKind* const rule = FindRuleKind(static_cast<EnumRuleType>(stored.ruleType));
  return rule != nullptr ? TypeOfParameter(*rule, parameter) : KSDataUnknown;
}

template <class Point>
bool TakePoints(const HistoryDataBase* history, IRuleBase* rule, std::vector<ShownPoint>& shown) {
  const auto* const typed = dynamic_cast<const PointHistory<Point>*>(history);
  if (typed == nullptr) return false;
  for (const Point& point : typed->points()) {
    const bool fits = rule == nullptr || !rule->CheckAlert(std::make_shared<Point>(point));
    shown.push_back({point.time, point.value, fits});
  }
  return true;
}

void TakeHistory(const HistoryDataBase* history, IRuleBase* rule, ObjectView& view) {
  TakePoints<KSDataPoint<std::int64_t>>(history, rule, view.points) ||
      TakePoints<KSDataPoint<float>>(history, rule, view.points) ||
      TakePoints<KSDataPoint<double>>(history, rule, view.points) ||
      TakePoints<KSDataPoint<std::string>>(history, rule, view.points) ||
      TakePoints<KSTableDataPoint>(history, rule, view.points);
}

/// The rule as the engine makes it; empty when there is none for this type of values.
std::shared_ptr<IRuleBase> MakeRule(const std::string& domainId, const StoredObject& stored,
                                    EnumKSDataType dataType, const std::string& history) {
  auto definition =
      std::make_shared<RuleDefinitionData>(stored.ruleType, stored.generateType, stored.parameter);
  definition->history = history;
  const auto rule = KSRuleAlgMgr::Instance()->GetRuleByType(
      AlgTypeOf(dataType), static_cast<EnumRuleType>(stored.ruleType), dataType);
  if (rule) rule->Init(definition, domainId);
  return rule;
}

bool IsFiltered(const DomainView& domain, const std::string& interface) {
  if (interface.empty()) return false;
  const auto lower = [](std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
  };
  const auto filter = domain.data->GetInterfaceFilterSet();
  return std::any_of(filter->begin(), filter->end(), [&](const std::string& entry) {
    return lower(interface).find(lower(entry)) != std::string::npos;
  });
}

/// Why the object learns nothing; empty when it does.
std::string WhyNotLearning(const DomainView& domain, const ObjectView& view) {
  if (view.hasRule && !view.isLearned) return "never: the rule is prescribed";
  if (!domain.isOn) return "never: the domain's engine is switched off (EnableKSFunction)";
  if (!domain.learns) return "never: learning is switched off (KSDynamicRuleStatus)";
  if (view.hasRule && IsFiltered(domain, view.key[1])) {
    return "never: the interface filter names the interface (KSInterfaceFilter)";
  }
  return view.isHistoryRead ? "" : "never: the stored history cannot be read";
}

void TellLearning(const DomainView& domain, bool isJudged, ObjectView& view) {
  view.learning = WhyNotLearning(domain, view);
  if (!view.learning.empty()) return;
  if (view.points.empty()) {
    view.learning = "with the next value";
    return;
  }
  const std::int64_t limit = isJudged ? domain.generalSettings.GetLiveTMInterval(view.ruleType)
                                      : domain.interval.value.asInt64();
  const std::int64_t newest = view.points.back().time;
  if (newest > std::numeric_limits<std::int64_t>::max() - std::max<std::int64_t>(limit, 0)) {
    view.learning = "never: the newest value lies at the end of time";
    return;
  }
  view.learnsAfter = newest + limit;
  view.learning = "with the first value after " + UtcTimeText(*view.learnsAfter) + " (" +
                  std::to_string(limit) + " s after the newest value of the history)";
}

void FindReference(ObjectView& view) {
  const bool isTrend =
      view.expected.kind == kExpectIncreasing || view.expected.kind == kExpectConstant;
  for (std::size_t i = view.points.size(); i-- > 0 && !view.reference;) {
    const ShownPoint& point = view.points[i];
    if (isTrend ? point.value == view.expected.value : point.fits) view.reference = i;
  }
}

void FindBlock(const DomainView& domain, ObjectView& view) {
  ObjectDefine object;
  object.deviceName = view.key[0];
  std::vector<std::pair<std::int64_t, std::int64_t>> periods;
  domain.data->GetBlockTimeByObjectId(periods, &object);
  const std::int64_t now = Clock::NowSeconds();
  for (const auto& [start, end] : periods) {
    if (start <= now && now <= end)
      view.blockedUntil = std::max(end, view.blockedUntil.value_or(end));
  }
}

}  // namespace

std::string ViewDomain(const std::string& domainId, DomainView& view) {
  view.id = domainId;
  view.data = KSDomainDataManager::Instance()->GetKSDataManager(domainId);
  if (!view.data) return {};
  std::map<std::string, JsonValue> rows;
  std::string fault = StoredSettings(domainId, rows);
  if (!fault.empty()) return fault;
  view.generalSettings = KSRuleGlobalSetting(rows[kGeneralSettingRow]);
  view.learns = view.data->IsEnableDynamicCal();
  view.isOn = view.data->IsEnableKSFunction();
  view.interval = ViewInterval();
  view.tableLimit =
      ViewRow(rows["KSTableCountLimit"], "KSTableCountLimit", view.data->GetTableLimitcount());
  view.lineLimit =
      ViewRow(rows["KSStrRowCountLimit"], "KSStrRowCountLimit", view.data->GetStrRowLimitcount());
  return {};
}

ObjectView ViewObject(const DomainView& domain, const StoredObject& stored) {
  ObjectView view;
  view.key = stored.key;
  view.hasRule = stored.hasRule;
  view.ruleType = static_cast<EnumRuleType>(stored.ruleType);
  view.isLearned = stored.generateType == kRuleLearned;
  view.parameter = stored.parameter;
  view.dataType = TypeOfHistory(stored.history);
  view.isHistoryRead = stored.history.empty() || view.dataType != KSDataUnknown;
  JsonValue parameter;
  if (!JsonReader::Parse(stored.parameter, parameter)) parameter = JsonValue();
  if (view.dataType == KSDataUnknown) {
    view.dataType = TypeWithoutHistory(domain, stored, parameter);
  }

  const std::string& history = view.isHistoryRead ? stored.history : std::string();
  std::shared_ptr<IRuleBase> rule;
  if (stored.hasRule) rule = MakeRule(domain.id, stored, view.dataType, history);
  const RuleKind* const kind = FindRuleKind(view.ruleType);
  if (rule && kind != nullptr) {
    // The rule reads whole numbers as real ones where its values are, and shows a number where
    // none is learned yet.
    const bool isAsStored = kind->followsValues || TypeOfParameter(*kind, parameter) == KSDataInt64;
    view.expected = KSExpectation::Of(
        view.ruleType, isAsStored ? stored.parameter : rule->GetRuleParam(), view.dataType);
    TakeHistory(rule->GetHistoryData().get(), rule.get(), view);
    FindReference(view);
  } else {
    view.expected = KSExpectation::Of(view.ruleType, stored.parameter, view.dataType);
    const auto points = MakeHistory(view.dataType);
    if (points && points->FromString(history)) TakeHistory(points.get(), nullptr, view);
  }
  TellLearning(domain, rule != nullptr, view);
  FindBlock(domain, view);

  if (!view.hasRule || view.isLearned) {
    if (rule && kind != nullptr) {
      view.settings = SettingsOf(*kind, domain.generalSettings);
    } else {
      view.settings.push_back(domain.interval);
    }
  }
  if (view.dataType == KSDataTable) view.settings.push_back(domain.tableLimit);
  if (view.dataType == KSDataString) view.settings.push_back(domain.lineLimit);
  return view;
}

JsonValue JsonOf(const DomainView& domain, const ObjectView& object) {
  JsonValue json(JsonType::Object);
  json["domain"] = domain.id;
  constexpr std::array<const char*, 5> kNames = {"device", "interface", "source", "param",
                                                 "variable"};
  for (std::size_t i = 0; i < kNames.size(); ++i) json[kNames[i]] = object.key[i];
  json["valueType"] = DataTypeName(object.dataType);
  JsonValue& rule = json["rule"];
  if (object.hasRule) {
    rule = JsonValue(JsonType::Object);
    rule["type"] = RuleTypeName(object.ruleType);
    rule["learned"] = object.isLearned;
    JsonValue parameter;
    const bool isDocument = JsonReader::Parse(object.parameter, parameter) && parameter.isObject();
    rule["parameter"] = isDocument ? parameter : JsonValue(object.parameter);
    rule["expected"] = object.expected.ToJsonValue();
  }
  JsonValue& reference = json["reference"];
  if (object.reference) {
    reference = JsonValue(JsonType::Object);
    reference["time"] = object.points[*object.reference].time;
    reference["value"] = object.points[*object.reference].value;
  }
  JsonValue& learning = json["learning"] = JsonValue(JsonType::Object);
  learning["after"] = object.learnsAfter ? JsonValue(*object.learnsAfter) : JsonValue();
  learning["words"] = object.learning;
  json["blockedUntil"] = object.blockedUntil ? JsonValue(*object.blockedUntil) : JsonValue();
  JsonValue& history = json["history"] = JsonValue(JsonType::Array);
  for (const ShownPoint& point : object.points) {
    JsonValue& element = history.append(JsonValue(JsonType::Object));
    element["time"] = point.time;
    element["value"] = point.value;
    element["fits"] = point.fits;
  }
  JsonValue& settings = json["settings"] = JsonValue(JsonType::Array);
  for (const ShownSetting& setting : object.settings) {
    JsonValue& element = settings.append(JsonValue(JsonType::Object));
    element["path"] = setting.path;
    element["value"] = setting.value;
    element["from"] = setting.from;
  }
  return json;
}

}  // namespace keelstone::host
