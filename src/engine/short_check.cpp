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

bool IsLearnedForType(std::int32_t generateType, std::int32_t ownType, std::int32_t variableType) {
  return generateType == kRuleLearned && ownType != 0 && ownType == variableType;
}

/// Whether the history is not to the last byte the library's own (nothing is known of the
/// newest value then), or that value is so old that the rule is to be learned anew.
bool IsDue(EnumRuleType ruleType, const std::optional<std::int64_t>& newest,
           const ShortCheck::Terms& terms) {
  return !newest || (terms.mayLearn && WrappingDifference(terms.time, *newest) >
                                           terms.settings.LiveInterval(ruleType));
}

ShortCheck AnswerOf(const TypedValue& value, std::int32_t ruleType, const std::string& ruleParam) {
  ShortCheck check;
  const std::optional<bool> breaks =
      BreaksRule(value, static_cast<EnumRuleType>(ruleType), ruleParam);
  if (!breaks) return check;
  check.answer = *breaks ? ShortCheck::kBreaks : ShortCheck::kFits;
  if (*breaks) {
    check.ruleType = ruleType;
    check.ruleParam = ruleParam;
  }
  return check;
}

/// Of a unit in memory. Once the run has a copy of the rule, or another history, those count.
ShortCheck OfResident(const VarInfo& variable, const TypedValue& value, const Found& found,
                      const ShortCheck::Terms& terms) {
  const ResidentVariable& stored = *found.resident;
  if (found.record || found.loadedHistory != nullptr || !stored.hasRule ||
      !stored.history.IsThere() ||
      !IsLearnedForType(stored.generateType, stored.variableType, variable.variableType) ||
      IsDue(static_cast<EnumRuleType>(stored.ruleType), stored.history.NewestTime(value.dataType()),
            terms)) {
    return {};
  }
  return AnswerOf(value, stored.ruleType, stored.ruleParam);
}

}  // namespace

ShortCheck ShortCheck::Of(const VarInfo& variable, const TypedValue& value, const Found& found,
                          const Terms& terms) {
  if (found.resident != nullptr) return OfResident(variable, value, found, terms);
  if (!IsComplete(found)) return {};
  std::optional<DefinitionLock> lock;
  if (found.needsLock) lock.emplace(*found.record);
  const RuleDefinitionData& record = *found.record;
  const std::string& history = found.isPending ? record.history : *found.loadedHistory;
  if (!IsLearnedForType(record.ruleGenerateType, record.variableType, variable.variableType)) {
    return {};
  }
  // Others would see the history that is written back.
  if (!found.isOurs && !found.isPending && record.history != history) return {};
  const auto ruleType = static_cast<EnumRuleType>(record.ruleType);
  // The guess costs next to nothing.
  if (IsDue(ruleType, GuessNewestTime(history), terms) ||
      IsDue(ruleType, NewestTimeOfOwnText(value.dataType(), history), terms)) {
    return {};
  }
  return AnswerOf(value, record.ruleType, record.ruleParam);
}

}  // namespace keelstone
