#include "engine/look_up.h"

#include <algorithm>
#include <cinttypes>
#include <utility>
#include <vector>

#include "base/text/strings.h"
#include "engine/typed_value.h"
#include "engine/variable_values.h"
#include "keelstone/clock.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/logger.h"
#include "keelstone/performance.h"
#include "model/history/history_scan.h"

namespace keelstone {

namespace {

/// Has the processor fetch both ends of a text that will be read soon, while it looks for
/// what else is needed.
void FetchAhead(const std::string& text) {
  constexpr std::size_t kLine = 64;  // bytes
  const char* const begin = text.data();
  __builtin_prefetch(begin + text.size());
  for (std::size_t at = 0; at < std::min(text.size(), 4 * kLine); at += kLine) {
    __builtin_prefetch(begin + at);
  }
}

/// The value of a two-step map, or nullptr. `outer` is where the first step led the last
/// time; variables mostly come interface by interface.
template <class Map>
auto* FindTwice(const Map& map, typename Map::const_iterator& outer, const std::string& first,
                const std::string& second) {
  if (outer == map.end() || outer->first != first) outer = map.find(first);
  if (outer == map.end()) return static_cast<decltype(&outer->second.begin()->second)>(nullptr);
  const auto inner = outer->second.find(second);
  return inner == outer->second.end() ? nullptr : &inner->second;
}

}  // namespace

LookUp::LookUp(const Subject& subject)
    : subject_(subject),
      manager_(KSDomainDataManager::Instance()->GetKSDataManager(subject.domainId)) {}

bool LookUp::IsInBlockTime() const {
  if (!manager_) return false;
  const ObjectDefine object = subject_.Object({});
  std::vector<std::pair<std::int64_t, std::int64_t>> periods;
  manager_->GetBlockTimeByObjectId(periods, &object);
  const std::int64_t now = Clock::NowSeconds();
  for (const auto& [start, end] : periods) {
    if (now < start || now > end) continue;
    KS_LOG("FS_Keelstone", "KSRuleInstance::IsInBlockTime", "ksruleinstance", kLogNotice,
           "Time: %" PRId64 " is in block time of device: %s.", now, subject_.deviceName.c_str());
    return true;
  }
  return false;
}

bool LookUp::IsDefineRule() const {
  if (unit_ ? unit_->HasRules() : !rules_.empty()) return true;
  return manager_ &&
         manager_->IsExistRuleDefinition({}, subject_.variableSource, kVariableSourceParser);
}

void LookUp::ForgetPlaces() {
  rulesOfInterface_ = rules_.end();
  historiesOfInterface_ = histories_.end();
}

void LookUp::Attach(std::shared_ptr<ResidentUnit> unit) {
  unit_ = std::move(unit);
  course_ = unit_->BeginRun();
  areRulesGiven_ = unit_->AreRulesLoaded();
  areHistoriesGiven_ = unit_->AreHistoriesLoaded();
  ForgetPlaces();
}

void LookUp::Store(std::vector<ResidentRow>& rules, std::vector<ResidentRow>& histories) {
  copies_.clear();  // they name variables by their places, which may move
  unit_->Apply(rules, histories, subject_.nodePathSchema);
  replaced_.clear();
}

void LookUp::SetRules(DevParserRule rules) {
  if (unit_) {
    unit_->SetRules(rules);
  } else {
    rules_ = std::move(rules);
  }
  ForgetPlaces();
  areRulesGiven_ = true;
  mayBeShared_ = true;
  definedVariables_.reset();
}

void LookUp::SetHistories(DevParserHistory histories) {
  if (unit_) {
    unit_->SetHistories(histories);
  } else {
    histories_ = std::move(histories);
  }
  ForgetPlaces();
  areHistoriesGiven_ = true;
}

// What could not be read is not taken for absent: it would be learned anew, and what is
// stored would be overwritten.
template <class Read>
bool LookUp::Load(const char* label, Read read) {
  const FSPerformance timing("KeelstoneRunner", label);
  if (!manager_) return false;
  const ObjectDefine object = subject_.Object({});
  const std::uint64_t failedBefore = FailedOperationsHere();
  read(object);
  isUnreadable_ = isUnreadable_ || FailedOperationsHere() != failedBefore;
  if (unit_ && isUnreadable_) unit_->Refuse();
  return true;
}

bool LookUp::LoadRules() {
  if (areRulesGiven_) return true;
  return Load("InitCacheData", [this](const ObjectDefine& object) {
    DevParserRule loaded;
    const int status = manager_->GetRuleDefinitionDataByDev(
        unit_ ? loaded : rules_, &object, subject_.variableSource, subject_.variableParam,
        kVariableSourceParser);
    ForgetPlaces();
    if (!unit_) return;
    unit_->SetRules(loaded);
    areRulesGiven_ = true;
    // Without a table what is learned goes nowhere.
    if (status >= 0) unit_->Refuse();
    ForgetPlaces();
  });
}

bool LookUp::LoadHistories() {
  if (areHistoriesGiven_) return true;
  return Load("InitHistoryData", [this](const ObjectDefine& object) {
    DevParserHistory loaded;
    manager_->GetRuleHistoryData(unit_ ? loaded : histories_, &object, subject_.variableSource,
                                 subject_.variableParam, kVariableSourceParser);
    if (unit_) {
      unit_->SetHistories(loaded);
      areHistoriesGiven_ = true;
    }
    ForgetPlaces();
  });
}

bool LookUp::IsVarDefineRule(const std::string& variableName) {
  if (!definedVariables_) {
    definedVariables_.emplace();
    for (const auto& [interfaceValue, definitions] : rules_) {
      for (const auto& [name, definition] : definitions) definedVariables_->insert(name);
    }
    if (unit_) {
      for (const ResidentVariable& variable : unit_->variables()) {
        if (variable.hasRule) definedVariables_->insert(variable.name);
      }
    }
  }
  return definedVariables_->contains(variableName);
}

const std::string* LookUp::LoadedHistory(const std::string& interfaceValue,
                                         const std::string& variableName) const {
  const DevParserHistory& texts = unit_ ? replaced_ : histories_;
  auto interface = texts.end();
  if (const std::string* text = FindTwice(texts, interface, interfaceValue, variableName)) {
    return text;
  }
  const auto* const stored = unit_ ? unit_->Find(interfaceValue, variableName) : nullptr;
  if (stored == nullptr || !stored->history.IsThere()) return nullptr;
  historyText_ = stored->history.ToText();
  return &historyText_;
}

std::optional<std::int64_t> LookUp::GuessNewestTime(const std::string& interfaceValue,
                                                    const std::string& variableName) const {
  if (unit_ && replaced_.empty()) {
    const auto* const stored = unit_->Find(interfaceValue, variableName);
    return stored == nullptr ? std::nullopt : stored->history.GuessNewest();
  }
  const std::string* const text = LoadedHistory(interfaceValue, variableName);
  return text == nullptr ? std::nullopt : keelstone::GuessNewestTime(*text);
}

void LookUp::ReplaceHistory(const std::string& interfaceValue, const std::string& variableName,
                            std::string history) {
  (unit_ ? replaced_ : histories_)[interfaceValue][variableName] = std::move(history);
  ForgetPlaces();
}

bool LookUp::IsFiltered(const std::string& interfaceValue) {
  if (interfaceValue.empty() || !manager_) return false;
  const std::uint64_t generation = GlobalSettingsGeneration();
  if (!filter_ || generation != filterGeneration_) {
    filter_ = manager_->GetInterfaceFilterSet();
    filterGeneration_ = generation;
  }
  return std::any_of(filter_->begin(), filter_->end(), [&](const std::string& entry) {
    return ContainsIgnoreCase(interfaceValue, entry);
  });
}

void LookUp::FindLoaded(const VarInfo& variable, Found& found) {
  found.loadedHistory =
      FindTwice(histories_, historiesOfInterface_, variable.interfaceValue, variable.variableName);
  const auto* const loaded =
      FindTwice(rules_, rulesOfInterface_, variable.interfaceValue, variable.variableName);
  if (loaded != nullptr) found.record = *loaded;
}

// What a run works on of a stored rule takes its place for the run's later values.
Found LookUp::FindResident(const VarInfo& variable) {
  Found found;
  found.resident = unit_->Next(variable.interfaceValue, variable.variableName, course_);
  if (!replaced_.empty()) {
    auto interface = replaced_.cend();
    found.loadedHistory =
        FindTwice(replaced_, interface, variable.interfaceValue, variable.variableName);
  }
  const auto copy = copies_.empty() ? copies_.end() : copies_.find(found.resident);
  if (copy != copies_.end()) found.record = copy->second->record;
  return found;
}

Found LookUp::Find(const VarInfo& variable) {
  if (unit_) return FindResident(variable);
  const auto* const cache = DBWriteWrapper::Instance();
  if (!pendingMark_) pendingMark_ = cache->MarkOf(subject_.domainId, subject_.deviceName);
  Found found;
  found.mayHavePending = pendingMark_->MayHaveRows();
  if (found.mayHavePending) {
    found.record = cache->GetCachedRuleDefinition(subject_.domainId, subject_.deviceName,
                                                  variable.interfaceValue, subject_.variableSource,
                                                  subject_.variableParam, variable.variableName);
    found.isPending = found.record != nullptr;
    found.needsLock = found.isPending;
    if (found.isPending) return found;
  }
  FindLoaded(variable, found);
  if (found.loadedHistory != nullptr) FetchAhead(*found.loadedHistory);
  found.isOurs = found.record && (!mayBeShared_ || found.record.use_count() == 2);
  // Also when it is ours now: after whoever held it before.
  found.needsLock = mayBeShared_;
  return found;
}

// What others may hold, other instances and the write-behind worker, is worked on as a copy.
bool LookUp::Take(const VarInfo& variable, Found& found, TakenDefinition& definition) {
  if (unit_) return TakeResident(variable, found, definition);
  if (!found.record) {
    if (!TakeNew(variable, definition)) return false;
    TakeHistory(variable, found, definition);
    return true;
  }
  definition.shared = found.record;
  std::optional<DefinitionLock> lock;
  if (found.needsLock) lock.emplace(*found.record);
  if (found.isOurs && found.loadedHistory != nullptr) {
    definition.own = found.record;
  } else {
    definition.own = std::make_shared<RuleDefinitionData>(*found.record);
    definition.HoldHistory(std::move(definition.own->history));
  }
  lock.reset();
  if (!found.isPending) TakeHistory(variable, found, definition);
  return true;
}

// The first value that comes to a rule works on its record alone where a history is stored;
// every other one as if the record were somebody else's, too.
bool LookUp::TakeResident(const VarInfo& variable, const Found& found,
                          TakenDefinition& definition) {
  definition.workbench = &workbench_;
  definition.stored = found.resident;
  const ResidentVariable* const stored = found.resident;
  const bool hasHistory =
      found.loadedHistory != nullptr || (stored != nullptr && stored->history.IsThere());
  if (stored == nullptr || !stored->hasRule) {
    if (!TakeNew(variable, definition)) return false;
  } else if (found.record) {
    const auto& copy = copies_.at(stored);
    // Who comes second reads the history that the record carries as a text.
    if (copy->history.IsThere()) {
      copy->record->history = std::exchange(copy->history, {}).ToText();
    }
    definition.changed = copy;
    definition.shared = copy->record;
  } else {
    definition.own = workbench_.Record();
    stored->FillRecord(*definition.own);
    if (hasHistory) {
      definition.shared = definition.own;
    } else {
      definition.shared = std::move(definition.own);
    }
  }
  if (!definition.own) {
    definition.own = std::make_shared<RuleDefinitionData>(*definition.shared);
    definition.HoldHistory(std::move(definition.own->history));
  }
  if (found.loadedHistory != nullptr) {
    definition.history = *found.loadedHistory;
  } else if (hasHistory) {
    definition.TakeHistory(stored->history, static_cast<EnumKSDataType>(variable.dataType),
                           workbench_);
  }
  return true;
}

void LookUp::Keep(const TakenDefinition& definition) {
  const ResidentVariable* const stored = definition.stored;
  if (!unit_ || stored == nullptr || !stored->hasRule) return;
  const RuleDefinitionData& record = *definition.record();
  const bool isAsStored =
      !definition.changed && !definition.IsCopy() && record.ruleType == stored->ruleType &&
      record.ruleParam == stored->ruleParam && record.variableType == stored->variableType;
  if (isAsStored) return;
  definition.Change();
  copies_.try_emplace(stored, definition.changed);
}

bool LookUp::TakeNew(const VarInfo& variable, TakenDefinition& definition) const {
  definition.own = std::make_shared<RuleDefinitionData>();
  RuleDefinitionData& own = *definition.own;
  if (!manager_ ||
      manager_->GetRuleDefinitionData(own, variable.variableName, subject_.variableSource, {},
                                      kVariableSourceParser) >= 0) {
    return false;
  }
  if (!own.IsEnable()) return false;
  definition.isNew = own.ruleType != kTableMd5;
  const auto dataType = static_cast<EnumKSDataType>(variable.dataType);
  if (IsNumeric(dataType)) own.ruleParam = ConvertVariableRuleParam(dataType, own.ruleParam);
  definition.HoldHistory(std::move(own.history));
  return true;
}

void LookUp::TakeHistory(const VarInfo& variable, const Found& found,
                         TakenDefinition& definition) const {
  std::string pending;
  if (found.mayHavePending &&
      DBWriteWrapper::Instance()->GetCachedHistoryData(
          subject_.domainId, subject_.deviceName, variable.interfaceValue, subject_.variableSource,
          subject_.variableParam, variable.variableName, pending) == 1) {
    definition.HoldHistory(std::move(pending));
  } else if (found.loadedHistory != nullptr) {
    definition.history = *found.loadedHistory;
  }
}

}  // namespace keelstone
