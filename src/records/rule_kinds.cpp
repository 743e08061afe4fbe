#include "keelstone/rule_kinds.h"

#include "records/rule_kind_rows.h"

namespace keelstone {

const RuleKind* FindRuleKind(EnumRuleType type) noexcept {
  return IsRuleType(type) ? &KindOf(type) : nullptr;
}

const RuleKind* FindRuleKind(std::string_view name) noexcept {
  for (const RuleKind& kind : kRuleKinds) {
    if (name == kind.name) return &kind;
  }
  return nullptr;
}

}  // namespace keelstone
