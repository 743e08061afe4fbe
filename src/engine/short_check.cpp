#include "engine/short_check.h"

#include <optional>

#include "base/text/numbers.h"
#include "engine/value_check.h"
#include "model/history/history_scan.h"

namespace keelstone {

namespace {

/// Whether both record and history are where the long way would take them from.
bool IsComplete(const Found& found) {
  if (!found.record) return false;
  return found.isPending || (!found.mayHavePending && found.loadedHistory != nullptr);
}

bool IsLearnedForType(const RuleDefinitionData& record, std::int32_t variableType) {
  return record.ruleGenerateType == kRuleLearned && record.variableType != 0 &&
         record.variableType == variableType;
}

/// Whether the history is not to the last byte the library's own, or its newest value is so
/// old that the rule is to be learned anew. The guess costs next to nothing.
bool IsDue(EnumRuleType ruleType, EnumKSDataType dataType, const std::string& history,
           const ShortCheck::Terms& terms) {
  const auto isDue = [&](const std::optional<std::int64_t>& newest) {
    return !newest || (terms.mayLearn && WrappingDifference(terms.time, *newest) >
                                             terms.settings.LiveInterval(ruleType));
  };
  return isDue(GuessNewestTime(history)) || isDue(NewestTimeOfOwnText(dataType, history));
}

}  // namespace

ShortCheck ShortCheck::Of(const VarInfo& variable, const TypedValue& value, const Found& found,
                          const Terms& terms) {
  ShortCheck check;
  if (!IsComplete(found)) return check;
  std::optional<DefinitionLock> lock;
  if (found.needsLock) lock.emplace(*found.record);
  const RuleDefinitionData& record = *found.record;
  const std::string& history = found.isPending ? record.history : *found.loadedHistory;
  if (!IsLearnedForType(record, variable.variableType)) return check;
  // Others would see the history that is written back.
  if (!found.isOurs && !found.isPending && record.history != history) return check;
  const auto ruleType = static_cast<EnumRuleType>(record.ruleType);
  if (IsDue(ruleType, value.dataType(), history, terms)) return check;
  const std::optional<bool> breaks = BreaksRule(value, ruleType, record.ruleParam);
  if (!breaks) return check;
  check.answer = *breaks ? kBreaks : kFits;
  if (*breaks) {
    check.ruleType = record.ruleType;
    check.ruleParam = record.ruleParam;
  }
  return check;
}

}  // namespace keelstone
