#include "keelstone/rule_global_setting.h"

#include <initializer_list>

#include "keelstone/json_reader.h"
#include "keelstone/logger.h"
#include "settings/rule_kinds.h"

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

template <class Setting>
bool Load(const JsonValue& document, const char* key, Setting& setting) {
  try {
    const JsonValue& object = document[key];
    for (const Field<Setting>& field : kFields<Setting>) {
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

/// The document that a settings object would be loaded from, in the order of its rows.
template <class Setting>
JsonValue Save(const Setting& setting) {
  JsonValue object(JsonType::Object);
  for (const Field<Setting>& field : kFields<Setting>) {
    JsonValue& holder = field.group == nullptr ? object : object[field.group];
    holder[field.key] =
        field.whole != nullptr ? JsonValue(setting.*field.whole) : JsonValue(setting.*field.ratio);
  }
  return object;
}

template <class Setting, class... Arguments>
std::shared_ptr<Setting> Loaded(const JsonValue& document, Arguments... arguments) {
  auto setting = std::make_shared<Setting>(arguments...);
  return setting->LoadSetting(document) ? setting : nullptr;
}

/// Whether a type's settings are found under its own name although it has no class.
bool HasOtherSetting(const RuleKind& row) { return row.settings == nullptr; }

}  // namespace

bool KSStrEqualRuleSetting::LoadSetting(const JsonValue& document) {
  return Load<KSLastingTextSetting>(document, RuleTypeName(kStrEqual), *this);
}
bool KSMd5TableRuleSetting::LoadSetting(const JsonValue& document) {
  return Load<KSLastingTextSetting>(document, RuleTypeName(kTableMd5), *this);
}
bool KSStrEnumRuleSetting::LoadSetting(const JsonValue& document) {
  return Load(document, RuleTypeName(kStrEnum), *this);
}
bool KSIntEnumRuleSetting::LoadSetting(const JsonValue& document) {
  return Load(document, RuleTypeName(kIntEnum), *this);
}
bool KSIntEqualRuleSetting::LoadSetting(const JsonValue& document) {
  return Load(document, RuleTypeName(kIntEqual), *this);
}
bool KSIntRangeRuleSetting::LoadSetting(const JsonValue& document) {
  return Load(document, RuleTypeName(kIntRange), *this);
}
bool KSIntConstantRuleSetting::LoadSetting(const JsonValue& document) {
  return Load<KSTrendRuleSetting>(document, RuleTypeName(kIntConstant), *this);
}
bool KSIntIncreaseRuleSetting::LoadSetting(const JsonValue& document) {
  return Load<KSTrendRuleSetting>(document, RuleTypeName(kIntIncrease), *this);
}

bool KSOtherRuleSetting::LoadSetting(const JsonValue& document) {
  if (ruleType == kRuleTypeNone) return false;
  const RuleKind* const row = FindRuleKind(ruleType);
  return Load(document, row != nullptr && HasOtherSetting(*row) ? row->name : "", *this);
}

KSRuleGlobalSetting::KSRuleGlobalSetting(const std::string& text) {
  if (JsonReader::Parse(text, *this)) return;
  KS_LOG("FS_Keelstone", "KSRuleGlobalSetting::KSRuleGlobalSetting", "ksruleglobalsetting",
         kLogError, "KSRuleGlobalSetting load fail.");
}

std::shared_ptr<KSStrEqualRuleSetting> KSRuleGlobalSetting::GetStrEqualSetting() const {
  return Loaded<KSStrEqualRuleSetting>(*this);
}
std::shared_ptr<KSStrEnumRuleSetting> KSRuleGlobalSetting::GetStrEnumSetting() const {
  return Loaded<KSStrEnumRuleSetting>(*this);
}
std::shared_ptr<KSIntEnumRuleSetting> KSRuleGlobalSetting::GetIntEnumSetting() const {
  return Loaded<KSIntEnumRuleSetting>(*this);
}
std::shared_ptr<KSIntEqualRuleSetting> KSRuleGlobalSetting::GetIntEqualSetting() const {
  return Loaded<KSIntEqualRuleSetting>(*this);
}
std::shared_ptr<KSIntRangeRuleSetting> KSRuleGlobalSetting::GetIntRangeSetting() const {
  return Loaded<KSIntRangeRuleSetting>(*this);
}
std::shared_ptr<KSIntConstantRuleSetting> KSRuleGlobalSetting::GetIntConstSetting() const {
  return Loaded<KSIntConstantRuleSetting>(*this);
}
std::shared_ptr<KSIntIncreaseRuleSetting> KSRuleGlobalSetting::GetIntIncreaseSetting() const {
  return Loaded<KSIntIncreaseRuleSetting>(*this);
}
std::shared_ptr<KSOtherRuleSetting> KSRuleGlobalSetting::GetOtherSetting(EnumRuleType type) const {
  return Loaded<KSOtherRuleSetting>(*this, type);
}
std::shared_ptr<KSMd5TableRuleSetting> KSRuleGlobalSetting::GetMD5TableSetting() const {
  return Loaded<KSMd5TableRuleSetting>(*this);
}

std::int32_t KSRuleGlobalSetting::GetHistoryDataCount(EnumRuleType type) const {
  const RuleKind* const row = FindRuleKind(type);
  const std::shared_ptr<KSRuleSettingBase> setting =
      row != nullptr && row->settings != nullptr ? row->settings(*this) : GetOtherSetting(type);
  return setting ? setting->GetDataCountHistory() : 30;
}

std::int32_t KSRuleGlobalSetting::GetLiveTMInterval(EnumRuleType type) const {
  const RuleKind* const row = FindRuleKind(type);
  const std::shared_ptr<KSRuleSettingBase> setting =
      row != nullptr && row->typedInterval ? row->settings(*this) : GetOtherSetting(type);
  return setting ? setting->GetTimeIntervalLimit() : 21600;
}

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
  KSIntEqualRuleSetting intEqual;
  intEqual.condition0DeltaEZero = 0.9;
  JsonValue document(JsonType::Object);
  const auto set = [&document](EnumRuleType type, JsonValue object) {
    document[RuleTypeName(type)] = std::move(object);
  };
  set(kStrEqual, Save<KSLastingTextSetting>(KSStrEqualRuleSetting()));
  set(kStrNoEqual, Save(KSOtherRuleSetting(kStrNoEqual)));
  set(kStrEnum, Save(KSStrEnumRuleSetting()));
  set(kStrRegex, Save(KSOtherRuleSetting(kStrRegex)));
  set(kIntEqual, Save(intEqual));
  set(kIntNoEqual, Save(KSOtherRuleSetting(kIntNoEqual)));
  set(kIntEnum, Save(KSIntEnumRuleSetting()));
  set(kIntRange, Save(KSIntRangeRuleSetting()));
  set(kIntConstant, Save<KSTrendRuleSetting>(KSIntConstantRuleSetting()));
  set(kIntIncrease, Save<KSTrendRuleSetting>(KSIntIncreaseRuleSetting()));
  set(kIntLEQ, Save(KSOtherRuleSetting(kIntLEQ)));
  set(kIntGEQ, Save(KSOtherRuleSetting(kIntGEQ)));
  set(kTableMd5, Save<KSLastingTextSetting>(KSMd5TableRuleSetting()));
  return document;
}

}  // namespace keelstone
