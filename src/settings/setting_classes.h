#ifndef KEELSTONE_SETTINGS_SETTING_CLASSES_H
#define KEELSTONE_SETTINGS_SETTING_CLASSES_H

#include <cstddef>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "keelstone/rule_global_setting.h"

namespace keelstone {

/// The class of a rule type's settings; most prescribed types have none of their own.
template <EnumRuleType kType>
struct SettingClassOf {
  using Type = KSOtherRuleSetting;
};
template <>
struct SettingClassOf<kStrEqual> {
  using Type = KSStrEqualRuleSetting;
};
template <>
struct SettingClassOf<kStrEnum> {
  using Type = KSStrEnumRuleSetting;
};
template <>
struct SettingClassOf<kIntEqual> {
  using Type = KSIntEqualRuleSetting;
};
template <>
struct SettingClassOf<kIntEnum> {
  using Type = KSIntEnumRuleSetting;
};
template <>
struct SettingClassOf<kIntRange> {
  using Type = KSIntRangeRuleSetting;
};
template <>
struct SettingClassOf<kIntConstant> {
  using Type = KSIntConstantRuleSetting;
};
template <>
struct SettingClassOf<kIntIncrease> {
  using Type = KSIntIncreaseRuleSetting;
};
template <>
struct SettingClassOf<kTableMd5> {
  using Type = KSMd5TableRuleSetting;
};

template <EnumRuleType kType>
using SettingClass = typename SettingClassOf<kType>::Type;

template <EnumRuleType kType>
inline constexpr bool kHasOwnSetting = !std::is_same_v<SettingClass<kType>, KSOtherRuleSetting>;

/// A type's settings with their defaults.
template <EnumRuleType kType>
SettingClass<kType> DefaultSettingOf() {
  if constexpr (kHasOwnSetting<kType>) {
    return {};
  } else {
    return KSOtherRuleSetting(kType);
  }
}

/// A type's settings as the document has them; empty when a member refuses its conversion.
template <EnumRuleType kType>
std::shared_ptr<SettingClass<kType>> LoadedSettingOf(const JsonValue& document) {
  auto setting = std::make_shared<SettingClass<kType>>(DefaultSettingOf<kType>());
  return setting->LoadSetting(document) ? setting : nullptr;
}

using EveryRuleType = std::make_index_sequence<kRuleTypeCount>;

/// The settings of all types, in the order of their numbers.
template <std::size_t... kTypes>
std::tuple<std::shared_ptr<const SettingClass<static_cast<EnumRuleType>(kTypes)>>...>
LoadedSettingsOf(const JsonValue& document, std::index_sequence<kTypes...>) {
  return {LoadedSettingOf<static_cast<EnumRuleType>(kTypes)>(document)...};
}
using LoadedSettings =
    decltype(LoadedSettingsOf(std::declval<const JsonValue&>(), EveryRuleType()));

}  // namespace keelstone

#endif  // KEELSTONE_SETTINGS_SETTING_CLASSES_H
