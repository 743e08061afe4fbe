#include "keelstone/rule_global_setting.h"

#include <cstddef>
#include <initializer_list>
#include <type_traits>

#include "keelstone/json_reader.h"
#include "keelstone/logger.h"
#include "records/rule_kind_rows.h"
#include "settings/setting_classes.h"

namespace keelstone {

namespace {

// A settings class as a table: one row a key, with the field that it fills.
template <class Setting>
struct Field {
  const char* key;
  std::int32_t Setting::* whole = nullptr;
  double Setting::* ratio = nullptr;
  const char* group = nullptr;  // nested object that holds the key

  constexpr Field(const char* k, std::int32_t Setting::* f) : key(k), whole(f) {}
  constexpr Field(const char* k, double Setting::* f) : key(k), ratio(f) {}
  constexpr Field(const char* g, const char* k, double Setting::* f) : key(k), ratio(f), group(g) {}
};

template <class Setting>
using Fields = std::initializer_list<Field<Setting>>;

template <class Setting>
constexpr Fields<Setting> kFields = {};

using Lasting = KSLastingTextSetting;
template <>
constexpr Fields<Lasting> kFields<Lasting> = {
    {"dataCountMinLimit", &Lasting::dataCountMinLimit},
    {"valueStatusCount", &Lasting::valueStatusCount},
    {"changeFrequency", &Lasting::changeFrequency},
    {"countEqualValueLimit", &Lasting::countEqualValueLimit},
    {"timeIntervalLimit", &Lasting::timeIntervalLimit},
    {"dataCountHistory", &Lasting::dataCountHistory},
};

using StrEnum = KSStrEnumRuleSetting;
template <>
constexpr Fields<StrEnum> kFields<StrEnum> = {
    {"dataCountMinLimit", &StrEnum::dataCountMinLimit},
    {"valueStatusCount", &StrEnum::valueStatusCount},
    {"changeFrequency", &StrEnum::changeFrequency},
    {"alertThreshold", &StrEnum::alertThreshold},
    {"timeIntervalLimit", &StrEnum::timeIntervalLimit},
    {"dataCountHistory", &StrEnum::dataCountHistory},
};

using IntEnum = KSIntEnumRuleSetting;
template <>
constexpr Fields<IntEnum> kFields<IntEnum> = {
    {"dataCountMinLimit", &IntEnum::dataCountMinLimit},
    {"deltaEZero", &IntEnum::deltaEZero},
    {"alertThreshold", &IntEnum::alertThreshold},
    {"timeIntervalLimit", &IntEnum::timeIntervalLimit},
    {"dataCountHistory", &IntEnum::dataCountHistory},
    {"valueStatusCount", &IntEnum::valueStatusCount},
};

using IntEqual = KSIntEqualRuleSetting;
template <>
constexpr Fields<IntEqual> kFields<IntEqual> = {
    {"dataCountThreshold", &IntEqual::dataCountThreshold},
    {"dataCountMinLimit", &IntEqual::dataCountMinLimit},
    {"condition0", "deltaEZero", &IntEqual::condition0DeltaEZero},
    {"condition1", "deltaEZero", &IntEqual::condition1DeltaEZero},
    {"condition2", "deltaEZero", &IntEqual::condition2DeltaEZero},
    {"timeIntervalLimit", &IntEqual::timeIntervalLimit},
    {"countEqualValueLimit", &IntEqual::countEqualValueLimit},
    {"dataCountHistory", &IntEqual::dataCountHistory},
    {"valueStatusCount", &IntEqual::valueStatusCount},
};

using IntRange = KSIntRangeRuleSetting;
template <>
constexpr Fields<IntRange> kFields<IntRange> = {
    {"dataCountMinLimit", &IntRange::dataCountMinLimit},
    {"valueStatusCount", &IntRange::valueStatusCount},
    {"lowerBoundMinValue", &IntRange::lowerBoundMinValue},
    {"upperBoundMaxValue", &IntRange::upperBoundMaxValue},
    {"percentageMaxValue", &IntRange::percentageMaxValue},
    {"stdCoefficient", &IntRange::stdCoefficient},
    {"timeIntervalLimit", &IntRange::timeIntervalLimit},
    {"dataCountHistory", &IntRange::dataCountHistory},
};

using Trend = KSTrendRuleSetting;
template <>
constexpr Fields<Trend> kFields<Trend> = {
    {"dataCountMinLimit", &Trend::dataCountMinLimit},
    {"deltaEZero", &Trend::deltaEZero},
    {"deltaLZeroCount", &Trend::deltaLZeroCount},
    {"deltaLZeroValue", &Trend::deltaLZeroValue},
    {"timeIntervalLimit", &Trend::timeIntervalLimit},
    {"dataCountHistory", &Trend::dataCountHistory},
};

using Other = KSOtherRuleSetting;
template <>
constexpr Fields<Other> kFields<Other> = {
    {"timeIntervalLimit", &Other::timeIntervalLimit},
    {"dataCountHistory", &Other::dataCountHistory},
};

/// The class whose table a settings class is filled by.
template <class Setting>
using Described =
    std::conditional_t<std::is_base_of_v<Lasting, Setting>, Lasting,
                       std::conditional_t<std::is_base_of_v<Trend, Setting>, Trend, Setting>>;

template <class Setting>
bool Load(const JsonValue& document, const char* key, Setting& setting) {
  using Class = Described<Setting>;
  static_assert(kFields<Class>.size() > 0, "the settings have a table of their fields");
  try {
    const JsonValue& object = document[key];
    for (const Field<Class>& field : kFields<Class>) {
      const JsonValue& holder = field.group == nullptr ? object : object[field.group];
      const JsonValue& member = holder[field.key];
      if (field.whole != nullptr) {
        setting.*field.whole = member.asInt();
      } else {
        setting.*field.ratio = member.asDouble();
      }
    }
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

/// From the sub-object of the type whose settings these are.
template <class Setting>
bool LoadOwn(const JsonValue& document, Setting& setting) {
  const char* key = "";
  ForEachRuleType([&key]<EnumRuleType kType> {
    if (std::is_same_v<SettingClass<kType>, Setting>) key = KindOf(kType).name;
    return true;
  });
  return Load(document, key, setting);
}

/// The document that a settings object would be loaded from, in the order of its rows.
template <class Setting>
JsonValue Save(const Setting& setting) {
  using Class = Described<Setting>;
  JsonValue object(JsonType::Object);
  for (const Field<Class>& field : kFields<Class>) {
    JsonValue& holder = field.group == nullptr ? object : object[field.group];
    holder[field.key] =
        field.whole != nullptr ? JsonValue(setting.*field.whole) : JsonValue(setting.*field.ratio);
  }
  return object;
}

using LoadedBase = std::shared_ptr<KSRuleSettingBase>;
constexpr auto kLoaders = ForEachRuleType([]<EnumRuleType kType> {
  return +[](const JsonValue& document) { return LoadedBase(LoadedSettingOf<kType>(document)); };
});
constexpr auto kHaveOwn = ForEachRuleType([]<EnumRuleType kType> { return kHasOwnSetting<kType>; });

LoadedBase LoadedFor(EnumRuleType type, const KSRuleGlobalSetting& document) {
  return IsRuleType(type) ? kLoaders[static_cast<std::size_t>(type)](document)
                          : document.GetOtherSetting(type);
}

}  // namespace

bool KSStrEqualRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSMd5TableRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSStrEnumRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSIntEnumRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSIntEqualRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSIntRangeRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSIntConstantRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}
bool KSIntIncreaseRuleSetting::LoadSetting(const JsonValue& document) {
  return LoadOwn(document, *this);
}

bool KSOtherRuleSetting::LoadSetting(const JsonValue& document) {
  if (ruleType == kRuleTypeNone) return false;
  const bool isNamed = IsRuleType(ruleType) && !kHaveOwn[static_cast<std::size_t>(ruleType)];
  return Load(document, isNamed ? KindOf(ruleType).name : "", *this);
}

KSRuleGlobalSetting::KSRuleGlobalSetting(const std::string& text) {
  if (JsonReader::Parse(text, *this)) return;
  KS_LOG("FS_Keelstone", "KSRuleGlobalSetting::KSRuleGlobalSetting", "ksruleglobalsetting",
         kLogError, "KSRuleGlobalSetting load fail.");
}

std::shared_ptr<KSStrEqualRuleSetting> KSRuleGlobalSetting::GetStrEqualSetting() const {
  return LoadedSettingOf<kStrEqual>(*this);
}
std::shared_ptr<KSStrEnumRuleSetting> KSRuleGlobalSetting::GetStrEnumSetting() const {
  return LoadedSettingOf<kStrEnum>(*this);
}
std::shared_ptr<KSIntEnumRuleSetting> KSRuleGlobalSetting::GetIntEnumSetting() const {
  return LoadedSettingOf<kIntEnum>(*this);
}
std::shared_ptr<KSIntEqualRuleSetting> KSRuleGlobalSetting::GetIntEqualSetting() const {
  return LoadedSettingOf<kIntEqual>(*this);
}
std::shared_ptr<KSIntRangeRuleSetting> KSRuleGlobalSetting::GetIntRangeSetting() const {
  return LoadedSettingOf<kIntRange>(*this);
}
std::shared_ptr<KSIntConstantRuleSetting> KSRuleGlobalSetting::GetIntConstSetting() const {
  return LoadedSettingOf<kIntConstant>(*this);
}
std::shared_ptr<KSIntIncreaseRuleSetting> KSRuleGlobalSetting::GetIntIncreaseSetting() const {
  return LoadedSettingOf<kIntIncrease>(*this);
}
std::shared_ptr<KSMd5TableRuleSetting> KSRuleGlobalSetting::GetMD5TableSetting() const {
  return LoadedSettingOf<kTableMd5>(*this);
}
std::shared_ptr<KSOtherRuleSetting> KSRuleGlobalSetting::GetOtherSetting(EnumRuleType type) const {
  auto setting = std::make_shared<KSOtherRuleSetting>(type);
  return setting->LoadSetting(*this) ? setting : nullptr;
}

std::int32_t KSRuleGlobalSetting::GetHistoryDataCount(EnumRuleType type) const {
  const LoadedBase setting = LoadedFor(type, *this);
  return setting ? setting->GetDataCountHistory() : 30;
}

std::int32_t KSRuleGlobalSetting::GetLiveTMInterval(EnumRuleType type) const {
  const bool isLent = IsRuleType(type) && KindOf(type).isIntervalLent;
  const LoadedBase setting = isLent ? GetOtherSetting(type) : LoadedFor(type, *this);
  return setting ? setting->GetTimeIntervalLimit() : 21600;
}

const char* RuleTypeName(EnumRuleType type) { return IsRuleType(type) ? KindOf(type).name : ""; }

void LayOver(JsonValue& base, const JsonValue& top) {
  if (!base.isObject() || !top.isObject()) {
    base = top;
    return;
  }
  for (auto member = top.begin(); member != top.end(); ++member) {
    LayOver(base[member.name()], *member);
  }
}

JsonValue DefaultGeneralSettings() {
  JsonValue document(JsonType::Object);
  ForEachRuleType([&document]<EnumRuleType kType> {
    document[KindOf(kType).name] = Save(DefaultSettingOf<kType>());
    return true;
  });
  document[KindOf(kIntEqual).name]["condition0"]["deltaEZero"] = 0.9;
  return document;
}

}  // namespace keelstone
