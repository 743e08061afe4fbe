#include "settings/rule_kinds.h"

#include <array>
#include <cstddef>

namespace keelstone {

namespace {

template <auto kAccessor>
std::shared_ptr<KSRuleSettingBase> Typed(const KSRuleGlobalSetting& document) {
  return (document.*kAccessor)();
}

using Document = KSRuleGlobalSetting;

constexpr std::array kKinds = {
    RuleKind{kStrEqual, "strEqual", Typed<&Document::GetStrEqualSetting>, true},
    RuleKind{kStrNoEqual, "strNoEqual", nullptr, false},
    RuleKind{kStrEnum, "strEnum", Typed<&Document::GetStrEnumSetting>, true},
    RuleKind{kStrRegex, "strRegex", nullptr, false},
    RuleKind{kIntEqual, "intEqual", Typed<&Document::GetIntEqualSetting>, true},
    RuleKind{kIntNoEqual, "intNoEqual", nullptr, false},
    RuleKind{kIntEnum, "intEnum", Typed<&Document::GetIntEnumSetting>, true},
    RuleKind{kIntRange, "intRange", Typed<&Document::GetIntRangeSetting>, true},
    RuleKind{kIntConstant, "intConstant", Typed<&Document::GetIntConstSetting>, true},
    RuleKind{kIntIncrease, "intIncrease", Typed<&Document::GetIntIncreaseSetting>, true},
    RuleKind{kIntLEQ, "intLEQ", nullptr, false},
    RuleKind{kIntGEQ, "intGEQ", nullptr, false},
    // The table type keeps its history by its own settings, but its interval is read
    // where the types without settings look.
    RuleKind{kTableMd5, "tableMd5", Typed<&Document::GetMD5TableSetting>, false},
};
static_assert(kKinds.size() == kRuleTypeCount);

constexpr bool IsInOrder() {
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (static_cast<std::size_t>(kKinds[i].type) != i) return false;
  }
  return true;
}
static_assert(IsInOrder());

}  // namespace

const RuleKind* FindRuleKind(EnumRuleType type) {
  if (type < 0 || type >= kRuleTypeCount) return nullptr;
  return &kKinds[static_cast<std::size_t>(type)];
}

const char* RuleTypeName(EnumRuleType type) {
  const RuleKind* const kind = FindRuleKind(type);
  return kind == nullptr ? "" : kind->name;
}

}  // namespace keelstone
