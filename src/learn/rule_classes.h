#ifndef KEELSTONE_LEARN_RULE_CLASSES_H
#define KEELSTONE_LEARN_RULE_CLASSES_H

#include "model/rules/numeric_rules.h"
#include "model/rules/regex_rule.h"
#include "model/rules/string_rules.h"
#include "model/rules/table_md5_rule.h"
#include "records/rule_kind_rows.h"

namespace keelstone {

/// The class of a rule type for values of type T.
template <EnumRuleType kType, class T>
using RuleClass = typename RuleClassOf<kType>::template For<T>;

}  // namespace keelstone

#endif  // KEELSTONE_LEARN_RULE_CLASSES_H
