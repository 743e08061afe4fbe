#include "program/evaluate/alert_book.h"

#include <functional>
#include <string_view>
#include <utility>

namespace keelstone::host {

namespace {

ObjectKey KeyOf(const ParsedRun& run, std::string_view interface, std::string_view variable) {
  return {run.domain, run.device, run.source, run.param, interface, variable};
}

/// Of the words: the numbers in a reason differ from run to run.
std::size_t ReasonHash(std::string words) {
  std::erase_if(words, [](char c) { return c >= '0' && c <= '9'; });
  return std::hash<std::string>{}(words);
}

std::size_t ParameterHash(int type, const std::string& parameter) {
  return std::hash<std::string>{}(parameter) * 31U + static_cast<std::size_t>(type);
}

}  // namespace

std::vector<EpisodeChange> AlertBook::Take(const ParsedRun& run, RunOutcome& outcome) {
  std::vector<EpisodeChange> changes;
  const MutexLock lock(mutex_);
  FillLearnedTimes(run, outcome);
  NoteLearned(run, outcome);
  std::size_t explanation = 0;
  for (const JudgedValue& value : outcome.judged) {
    if (!value.isAlert && episodes_.isEmpty()) continue;
    const VarInfo& variable = run.variables[value.variable];
    const std::string said =
        value.isAlert ? outcome.explanations[explanation].Predicate() : std::string();
    EpisodeChange change{EpisodeStep::kNone, value.variable, explanation, {}};
    change.step = episodes_.Note(KeyOf(run, variable.interfaceValue, variable.variableName),
                                 run.time, value.isAlert, said, &change.episode);
    if (value.isAlert) ++explanation;
    if (change.step != EpisodeStep::kNone) changes.push_back(std::move(change));
  }
  return changes;
}

void AlertBook::FillLearnedTimes(const ParsedRun& run, RunOutcome& outcome) const {
  for (KSAlertExplanation& alert : outcome.explanations) {
    if (alert.learnedTime || alert.ruleGenerateType != kRuleLearned) continue;
    const auto found = learned_.find(KeyOf(run, alert.interfaceValue, alert.variableName));
    if (found == learned_.end()) continue;
    // Somebody else may have put another rule in its place.
    if (found->second.parameter != ParameterHash(alert.ruleType, alert.ruleParam)) continue;
    alert.learnedTime = found->second.time;
  }
}

void AlertBook::NoteLearned(const ParsedRun& run, const RunOutcome& outcome) {
  if (!outcome.results) return;
  for (const auto& item : outcome.results->GetKSRuleUpdateResults()) {
    if (!item->isLearned) continue;
    const ObjectKey key = KeyOf(run, item->strInterfaceName, item->strVariableName);
    auto place = learned_.find(key);
    if (place == learned_.end()) place = learned_.try_emplace(OwnObjectKey(key)).first;
    place->second = {ParameterHash(item->nRuleId, item->strRuleAlgParam), run.time};
  }
}

void AlertBook::TakeNews(const ParsedRun& run, std::vector<RefusedValue>& refused) {
  std::vector<RefusedValue> news;
  const MutexLock lock(mutex_);
  for (RefusedValue& value : refused) {
    const VarInfo& variable = run.variables[value.variable];
    const ObjectKey key = KeyOf(run, variable.interfaceValue, variable.variableName);
    auto place = refused_.find(key);
    if (place == refused_.end()) place = refused_.try_emplace(OwnObjectKey(key)).first;
    const std::size_t reason = ReasonHash(value.reason);
    if (std::exchange(place->second, reason) != reason) news.push_back(std::move(value));
  }
  refused.swap(news);
}

std::vector<std::pair<ObjectKey, Episode>> AlertBook::Open() const {
  const MutexLock lock(mutex_);
  return episodes_.Open();
}

}  // namespace keelstone::host
