#ifndef KEELSTONE_EXPLANATION_H
#define KEELSTONE_EXPLANATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/expectation.h"
#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_changes.h"

namespace keelstone {

/// What became of one value.
enum EnumVerdict : std::int32_t {
  kVerdictNone = 0,   // not judged: refused, filtered, or no rule that could
  kVerdictFits = 1,   // judged by a rule, which it keeps
  kVerdictAlert = 2,  // judged by a rule, which it breaks
};

/// A value of a history.
struct KSTimedValue {
  std::int64_t time = 0;  // seconds since the epoch
  JsonValue value;        // of a table its digest; a long text is cut
};

/// Why a value raised an alert: what was expected, by which rule, since when, and what
/// came instead. It carries all that the verdict can be found from again. Device text
/// stands in it as it came. A value type; one thread at a time.
struct KEELSTONE_EXPORT KSAlertExplanation {
  static constexpr std::size_t kMostLastValues = 10;

  std::string variableName;
  std::string interfaceValue;
  std::int64_t time = 0;                         // of the value, seconds since the epoch
  EnumKSDataType dataType = KSDataUnknown;       // of the value
  EnumRuleType ruleType = kRuleTypeNone;         // of the rule that judged it
  std::int32_t ruleGenerateType = kRuleLearned;  // Enum_RuleGenerateType
  KSExpectation expected;
  /// The value as it was judged: a number, a text, of a table its digest.
  JsonValue observed;
  std::string observedText;  // as it was handed in

  /// The variable's history without this value.
  std::int64_t historyPoints = 0;
  std::int64_t firstTime = 0;  // seconds since the epoch; 0 without points
  std::int64_t lastTime = 0;
  std::vector<KSTimedValue> lastValues;  // oldest first

  /// When the rule was learned, where that is known: the value at which it was learned is
  /// judged by it already. The databases do not hold that time; a host may fill it in that
  /// has seen the rule being learned (KSRuleUpdateResultItem::isLearned).
  std::optional<std::int64_t> learnedTime;
  std::string ruleParam;  // the parameter text of the rule that judged

  /// Against the golden table, where that is known.
  std::optional<KSTableChanges> table;

  /// "prefixes on eth0 is 12, expected between 3 and 7 (learned; 30 values since …)".
  std::string Sentence() const;
  /// The sentence without the names in front: "is 12, expected between 3 and 7 (…)".
  std::string Predicate() const;
  JsonValue ToJsonValue() const;
  /// Its text, valid UTF-8 whatever the device sent.
  std::string ToJsonString() const;
};

/// The name of a data type in documents ("int64"); "" for what is none.
KEELSTONE_EXPORT const char* DataTypeName(EnumKSDataType type);

}  // namespace keelstone

#endif  // KEELSTONE_EXPLANATION_H
