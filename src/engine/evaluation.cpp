#include "engine/evaluation.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "base/text/strings.h"
#include "engine/value_check.h"
#include "engine/variable_values.h"
#include "keelstone/clock.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"
#include "keelstone/numbers.h"
#include "keelstone/performance.h"
#include "keelstone/write_behind.h"
#include "model/history/history_scan.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kSourceFile = "ksruleinstance";
constexpr const char* kProcessVariable = "KSRuleInstance::ProcessVariable";

// A variable without a rule keeps this many values until one is learned.
constexpr std::int32_t kValuesWithoutRule = 10;
constexpr std::int32_t kTablesWithoutRule = 5;

std::int32_t ReadIni(const char* key, std::int32_t otherwise) {
  return IniReader::GetInt("Keelstone", key, otherwise, "fix_frontserver.ini");
}

std::shared_ptr<const RuleSettings> SettingsOf(const KSDataManagerSql* manager) {
  return manager != nullptr ? manager->GetRuleSettings()
                            : std::make_shared<const RuleSettings>(KSRuleGlobalSetting());
}

EnumKSDataType DataTypeOf(const VarInfo& variable) {
  return static_cast<EnumKSDataType>(variable.dataType);
}

bool IsNumeric(EnumKSDataType dataType) {
  return dataType == KSDataInt64 || dataType == KSDataFloat || dataType == KSDataDouble;
}

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
auto* FindTwice(Map& map, typename Map::iterator& outer, const std::string& first,
                const std::string& second) {
  if (outer == map.end() || outer->first != first) outer = map.find(first);
  if (outer == map.end()) return static_cast<decltype(&outer->second.begin()->second)>(nullptr);
  const auto inner = outer->second.find(second);
  return inner == outer->second.end() ? nullptr : &inner->second;
}

}  // namespace

KSRuleInstance::Evaluation::Evaluation(Subject subject, bool onDemandTask)
    : subject_(std::move(subject)),
      onDemandTask_(onDemandTask),
      manager_(KSDomainDataManager::Instance()->GetKSDataManager(subject_.domainId)),
      settings_(SettingsOf(manager_.get())),
      isUnreadable_(manager_ && !manager_->AreGlobalSettingsRead()),
      dynamicCalculation_(manager_ && manager_->IsEnableDynamicCal()),
      intervalTime_(ReadIni("IntervalTime", 1800)),
      strValueLength_(static_cast<std::size_t>(std::max(ReadIni("StrValueLength", 1024), 0))),
      results_(std::make_shared<KSRuleUpdateResultData>()) {}

bool KSRuleInstance::Evaluation::IsInBlockTime() {
  if (!manager_) return false;
  const ObjectDefine object = MakeObject({});
  std::vector<std::pair<std::int64_t, std::int64_t>> periods;
  manager_->GetBlockTimeByObjectId(periods, &object);
  const std::int64_t now = Clock::NowSeconds();
  for (const auto& [start, end] : periods) {
    if (now < start || now > end) continue;
    KS_LOG(kModule, "KSRuleInstance::IsInBlockTime", kSourceFile, kLogNotice,
           "Time: %" PRId64 " is in block time of device: %s.", now, subject_.deviceName.c_str());
    return true;
  }
  return false;
}

bool KSRuleInstance::Evaluation::IsDefineRule() const {
  if (!rules_.empty()) return true;
  return manager_ &&
         manager_->IsExistRuleDefinition({}, subject_.variableSource, kVariableSourceParser);
}

void KSRuleInstance::Evaluation::SetRules(DevParserRule rules) {
  rules_ = std::move(rules);
  rulesOfInterface_ = rules_.end();
  areRulesGiven_ = true;
  mayBeShared_ = true;
  definedVariables_.reset();
}

void KSRuleInstance::Evaluation::SetHistories(DevParserHistory histories) {
  histories_ = std::move(histories);
  historiesOfInterface_ = histories_.end();
  areHistoriesGiven_ = true;
}

// What could not be read is not taken for absent: it would be learned anew, and what is
// stored would be overwritten.
template <class Read>
bool KSRuleInstance::Evaluation::Load(const char* label, Read read) {
  const FSPerformance timing("KeelstoneRunner", label);
  if (!manager_) return false;
  const ObjectDefine object = MakeObject({});
  const std::uint64_t failedBefore = FailedOperationsHere();
  read(object);
  isUnreadable_ = isUnreadable_ || FailedOperationsHere() != failedBefore;
  return true;
}

bool KSRuleInstance::Evaluation::LoadRules() {
  if (areRulesGiven_) return true;
  return Load("InitCacheData", [this](const ObjectDefine& object) {
    manager_->GetRuleDefinitionDataByDev(rules_, &object, subject_.variableSource,
                                         subject_.variableParam, kVariableSourceParser);
    rulesOfInterface_ = rules_.end();
  });
}

bool KSRuleInstance::Evaluation::LoadHistories() {
  if (areHistoriesGiven_) return true;
  return Load("InitHistoryData", [this](const ObjectDefine& object) {
    manager_->GetRuleHistoryData(histories_, &object, subject_.variableSource,
                                 subject_.variableParam, kVariableSourceParser);
    historiesOfInterface_ = histories_.end();
  });
}

bool KSRuleInstance::Evaluation::IsVarDefineRule(const std::string& variableName) {
  if (!definedVariables_) {
    definedVariables_.emplace();
    for (const auto& [interfaceValue, definitions] : rules_) {
      for (const auto& [name, definition] : definitions) definedVariables_->insert(name);
    }
  }
  return definedVariables_->contains(variableName);
}

bool KSRuleInstance::Evaluation::ProcessVariable(const VarInfo& variable) {
  if (explainer_) explainer_->Begin();
  refusal_ = kRefusalFailure;  // should it throw
  const bool isTaken = TakeValue(variable);
  if (isTaken) refusal_ = kRefusalNone;
  return isTaken;
}

bool KSRuleInstance::Evaluation::Refuse(EnumRefusal why) {
  refusal_ = why;
  return false;
}

bool KSRuleInstance::Evaluation::TakeValue(const VarInfo& variable) {
  if (isUnreadable_) {
    KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
           "Variable:%s is not evaluated, what is stored of device:%s could not be read.",
           variable.variableName.c_str(), subject_.deviceName.c_str());
    return Refuse(kRefusalUnreadable);
  }
  const Found found = Find(variable);
  if (TryCheckOnly(variable, found)) return true;
  Definition definition;
  if (!TakeDefinition(variable, found, definition)) {
    KS_LOG(kModule, kProcessVariable, kSourceFile, kLogInformation,
           "Variable:%s is not define rule.", variable.variableName.c_str());
    return Refuse(kRefusalUndefined);
  }
  if (definition.own->ruleGenerateType == kRuleLearned && IsFiltered(variable.interfaceValue)) {
    return true;
  }
  if (!TakeVariableType(variable, definition)) {
    KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
           "Variable type is changed. the variable type is mismatch to variable value type.Var:%s",
           variable.variableName.c_str());
    KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
           "Refused: device:%s, source:%s, interface:%s, variable:%s.", subject_.deviceName.c_str(),
           subject_.variableSource.c_str(), variable.interfaceValue.c_str(),
           variable.variableName.c_str());
    return Refuse(kRefusalType);
  }
  const std::shared_ptr<KSDataBase> point = CreateDataPoint(variable, subject_.time);
  if (!point) {
    KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError, "nullptr == pData");
    return Refuse(kRefusalNoValue);
  }

  Judgement judgement = MeetRule(variable, definition);
  if (judgement.isHistoryRefused) {
    LogRefusedHistory(variable);
    // A rule of numbers is kept with all that is stored of it; else a new history begins.
    if (judgement.rule && IsNumeric(DataTypeOf(variable))) return true;
    judgement.history = MakeHistory(DataTypeOf(variable));
  }
  if (variable.dataType == KSDataTable) {
    FillTablePoint(variable, judgement.history.get(), static_cast<KSTableDataPoint&>(*point));
  }
  JudgeValue(variable, definition, point, judgement);
  if (judgement.rule) {
    Conclude(variable, definition, point, judgement);
  } else if (judgement.mayLearn && judgement.history) {
    GenerateHistoryData(variable, point, *judgement.history);
  }
  return true;
}

void KSRuleInstance::Evaluation::SerializeLocalDB() {
  CollectReplacedHistories();
  DBWriteWrapper* const cache = DBWriteWrapper::Instance();
  std::shared_ptr<HandedRows> handed;
  if (!pendingRules_.empty() || !pendingHistories_.empty()) {
    mayBeShared_ = true;
    // First: the rows of an earlier call that these overtake are not handed over again.
    handed =
        cache->HandOver(subject_.domainId, subject_.deviceName, std::exchange(pendingRules_, {}),
                        std::exchange(pendingHistories_, {}));
  }
  for (const auto& earlier : handedRows_) {
    cache->HandOverAgain(subject_.domainId, subject_.deviceName, *earlier);
  }
  if (handed != nullptr) handedRows_.push_back(std::move(handed));
}

const std::string* KSRuleInstance::Evaluation::LoadedHistory(
    const std::string& interfaceValue, const std::string& variableName) const {
  const auto interface = histories_.find(interfaceValue);
  if (interface == histories_.end()) return nullptr;
  const auto history = interface->second.find(variableName);
  return history != interface->second.end() ? &history->second : nullptr;
}

void KSRuleInstance::Evaluation::ReplaceHistory(const std::string& interfaceValue,
                                                const std::string& variableName,
                                                std::string history) {
  histories_[interfaceValue][variableName] = std::move(history);
  historiesOfInterface_ = histories_.end();
  replacedHistories_.emplace(interfaceValue, variableName);
}

// Pending definitions come first, then what was loaded, then the variable rules.
KSRuleInstance::Evaluation::Found KSRuleInstance::Evaluation::Find(const VarInfo& variable) {
  const auto* const cache = DBWriteWrapper::Instance();
  if (!pendingMark_) pendingMark_ = cache->MarkOf(subject_.domainId, subject_.deviceName);
  Found found;
  found.mayHavePending = pendingMark_->MayHaveRows();
  if (found.mayHavePending) {
    found.record = cache->GetCachedRuleDefinition(subject_.domainId, subject_.deviceName,
                                                  variable.interfaceValue, subject_.variableSource,
                                                  subject_.variableParam, variable.variableName);
    found.isPending = found.record != nullptr;
    if (found.isPending) return found;
  }
  found.loadedHistory =
      FindTwice(histories_, historiesOfInterface_, variable.interfaceValue, variable.variableName);
  if (found.loadedHistory != nullptr) FetchAhead(*found.loadedHistory);
  const auto* const loaded =
      FindTwice(rules_, rulesOfInterface_, variable.interfaceValue, variable.variableName);
  if (loaded != nullptr) found.record = *loaded;
  found.isOurs = found.record && (!mayBeShared_ || found.record.use_count() == 2);
  return found;
}

// What others may hold, other instances and the write-behind worker, is worked on as a copy.
bool KSRuleInstance::Evaluation::TakeDefinition(const VarInfo& variable, const Found& found,
                                                Definition& definition) const {
  if (!found.record) {
    if (!TakeNewDefinition(variable, definition)) return false;
    TakeHistoryText(variable, found, definition);
    return true;
  }
  definition.shared = found.record;
  // Taken also for a record that is ours now: after whoever held it before.
  std::optional<DefinitionLock> lock;
  if (!found.isOurs || mayBeShared_) lock.emplace(*found.record);
  if (found.isOurs && found.loadedHistory != nullptr) {
    definition.own = found.record;
  } else {
    definition.own = std::make_shared<RuleDefinitionData>(*found.record);
    definition.Hold(std::move(definition.own->history));
  }
  lock.reset();
  if (!found.isPending) TakeHistoryText(variable, found, definition);
  return true;
}

bool KSRuleInstance::Evaluation::TakeNewDefinition(const VarInfo& variable,
                                                   Definition& definition) const {
  definition.own = std::make_shared<RuleDefinitionData>();
  RuleDefinitionData& own = *definition.own;
  if (!manager_ ||
      manager_->GetRuleDefinitionData(own, variable.variableName, subject_.variableSource, {},
                                      kVariableSourceParser) >= 0) {
    return false;
  }
  if (!own.IsEnable()) return false;
  definition.isNew = own.ruleType != kTableMd5;
  if (IsNumeric(DataTypeOf(variable))) {
    own.ruleParam = ConvertVariableRuleParam(DataTypeOf(variable), own.ruleParam);
  }
  definition.Hold(std::move(own.history));
  return true;
}

void KSRuleInstance::Evaluation::TakeHistoryText(const VarInfo& variable, const Found& found,
                                                 Definition& definition) const {
  std::string pending;
  if (found.mayHavePending &&
      DBWriteWrapper::Instance()->GetCachedHistoryData(
          subject_.domainId, subject_.deviceName, variable.interfaceValue, subject_.variableSource,
          subject_.variableParam, variable.variableName, pending) == 1) {
    definition.Hold(std::move(pending));
  } else if (found.loadedHistory != nullptr) {
    definition.history = *found.loadedHistory;
  }
}

// A value whose rule is not due to be learned anew only needs its parameter and the time of
// the newest value. Where all texts are as the library writes them, writing back what was
// read changes nothing, and no rule has to be made. False, and nothing done, for whatever
// else there is: the long way is right for every value.
bool KSRuleInstance::Evaluation::TryCheckOnly(const VarInfo& variable, const Found& found) {
  // Who wants to have values explained wants to see their rules.
  if (explainer_ || !found.record || IsFiltered(variable.interfaceValue)) return false;
  if (!found.isPending && (found.mayHavePending || found.loadedHistory == nullptr)) return false;
  const EnumKSDataType dataType = DataTypeOf(variable);
  std::int32_t ruleType = kRuleTypeNone;
  std::string brokenParam;
  {
    std::optional<DefinitionLock> lock;
    if (mayBeShared_ || found.isPending) lock.emplace(*found.record);
    const RuleDefinitionData& record = *found.record;
    const std::string& history = found.isPending ? record.history : *found.loadedHistory;
    ruleType = record.ruleType;
    if (record.ruleGenerateType != kRuleLearned || record.variableType == 0 ||
        record.variableType != variable.variableType) {
      return false;
    }
    // Others would see the history that is written back.
    if (!found.isOurs && !found.isPending && record.history != history) return false;
    const auto isDue = [&](const std::optional<std::int64_t>& newest) {
      return !newest || (dynamicCalculation_ && !onDemandTask_ &&
                         WrappingDifference(subject_.time, *newest) >
                             settings_->LiveInterval(static_cast<EnumRuleType>(ruleType)));
    };
    if (isDue(GuessNewestTime(history)) || isDue(NewestTimeOfOwnText(dataType, history))) {
      return false;
    }
    const std::optional<bool> breaks =
        BreaksRule(variable, static_cast<EnumRuleType>(ruleType), record.ruleParam);
    if (!breaks) return false;
    if (!*breaks) return true;
    brokenParam = record.ruleParam;
  }
  CollectAlertRueslt(variable, ruleType, brokenParam);
  return true;
}

bool KSRuleInstance::Evaluation::TakeVariableType(const VarInfo& variable,
                                                  const Definition& definition) const {
  if (definition.own->variableType != 0) {
    return definition.own->variableType == variable.variableType;
  }
  definition.own->variableType = variable.variableType;
  if (definition.IsCopy()) {
    const DefinitionLock lock(*definition.shared);
    definition.shared->variableType = variable.variableType;
  }
  return true;
}

bool KSRuleInstance::Evaluation::IsFiltered(const std::string& interfaceValue) {
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

KSRuleInstance::Evaluation::Judgement KSRuleInstance::Evaluation::MeetRule(
    const VarInfo& variable, const Definition& definition) const {
  const EnumKSDataType dataType = DataTypeOf(variable);
  KSRuleAlgMgr* const manager = KSRuleAlgMgr::Instance();
  Judgement judgement;
  judgement.mayLearn = dynamicCalculation_ && !onDemandTask_;
  judgement.rule = manager->GetRuleByType(
      AlgTypeOf(dataType), static_cast<EnumRuleType>(definition.own->ruleType), dataType);
  if (judgement.rule) {
    judgement.rule->InitWithHistory(definition.own, definition.history, subject_.domainId);
    judgement.mayLearn = judgement.mayLearn && judgement.rule->IsDynamic();
    judgement.history = judgement.rule->LentHistory();
    judgement.isHistoryRefused = !definition.history.empty() && !judgement.rule->GetRuleData();
  } else if (judgement.mayLearn) {
    manager->ReadHistory(definition.history, dataType, judgement.history, judgement.feature);
    judgement.isHistoryRefused = !definition.history.empty() && !judgement.feature;
  }
  return judgement;
}

void KSRuleInstance::Evaluation::JudgeValue(const VarInfo& variable, const Definition& definition,
                                            const std::shared_ptr<KSDataBase>& point,
                                            Judgement& judgement) const {
  if (judgement.mayLearn && !TimeIntervalLessThanThreshold(judgement)) {
    Relearn(variable, definition, point, judgement);
  } else if (judgement.rule && !judgement.rule->IsDynamic()) {
    judgement.goldenChanged = judgement.rule->CheckGoldenValue(point);
  }
}

void KSRuleInstance::Evaluation::Relearn(const VarInfo& variable, const Definition& definition,
                                         const std::shared_ptr<KSDataBase>& point,
                                         Judgement& judgement) const {
  const EnumKSDataType dataType = DataTypeOf(variable);
  if (judgement.rule) judgement.feature = judgement.rule->GetDataFeature();
  const std::shared_ptr<IRuleBase> learned =
      KSRuleAlgMgr::Instance()->CalculateRule(definition.own, judgement.history, judgement.feature,
                                              dataType, subject_.domainId, AlgTypeOf(dataType));
  if (learned) {
    const bool isUpdated = learned->UpdateRule();
    judgement.ruleChanged = !learned->IsEqual(judgement.rule.get());
    judgement.goldenChanged = isUpdated && judgement.ruleChanged;
    judgement.rule = learned;
  }
  if (judgement.rule && judgement.rule->LentHistory()) {
    judgement.rule->LentHistory()->AddData(point,
                                           settings_->HistoryDataCount(judgement.rule->GetType()));
    judgement.historyAdded = true;
  }
}

// With a rule its own history decides, without one the history alone; with neither there is
// nothing to learn from.
bool KSRuleInstance::Evaluation::TimeIntervalLessThanThreshold(const Judgement& judgement) const {
  if (!judgement.history) return !judgement.rule;
  const std::int32_t limit =
      judgement.rule ? settings_->LiveInterval(judgement.rule->GetType()) : intervalTime_;
  return WrappingDifference(subject_.time, judgement.history->GetLastTime()) <= limit;
}

// The alert shows the definition as it stood when the value was judged; only then is the
// rule written back into it.
void KSRuleInstance::Evaluation::Conclude(const VarInfo& variable, const Definition& definition,
                                          const std::shared_ptr<KSDataBase>& point,
                                          const Judgement& judgement) {
  IRuleBase& rule = *judgement.rule;
  RuleDefinitionData& own = *definition.own;
  if (CheckAlert(variable, definition, point, judgement)) {
    CollectAlertRueslt(variable, own.ruleType, own.ruleParam);
  }
  const bool followsValue =
      (rule.GetType() == kIntConstant || rule.GetType() == kIntIncrease) && !rule.IsDynamic();
  if (followsValue) rule.UpdateParam(point);

  own.ruleType = rule.GetType();
  own.ruleParam = rule.GetRuleParam();
  const bool isRuleCollected = followsValue || definition.isNew || judgement.ruleChanged;
  // The history goes where somebody will read it: into a record that others get to see, or
  // into a row of its own.
  const HistoryDataBase* const history = rule.LentHistory().get();
  std::string historyText;
  if (history != nullptr && (isRuleCollected || judgement.historyAdded || definition.IsCopy())) {
    history->WriteTo(historyText);
  }
  if (judgement.goldenChanged) UpdateKSValueResultItem(variable, rule, own);
  if (isRuleCollected) {
    if (!followsValue) RuleUpdateResultItem(variable, rule, own, judgement.ruleChanged);
    CollectRuleUpdateRueslt(variable, definition);
  } else if (judgement.historyAdded && !historyText.empty()) {
    CollectHistory(variable, definition.IsCopy() ? historyText : std::move(historyText));
  }
  if (isRuleCollected || definition.IsCopy()) own.history = std::move(historyText);

  if (definition.IsCopy()) {
    const DefinitionLock lock(*definition.shared);
    definition.shared->ruleType = own.ruleType;
    definition.shared->ruleParam.swap(own.ruleParam);
    definition.shared->history.swap(own.history);
  }
}

bool KSRuleInstance::Evaluation::CheckAlert(const VarInfo& variable, const Definition& definition,
                                            const std::shared_ptr<KSDataBase>& point,
                                            const Judgement& judgement) {
  const bool isBroken = judgement.rule->CheckAlert(point);
  if (!explainer_) return isBroken;
  const Explainer::Case judged{variable,
                               point,
                               subject_.time,
                               *judgement.rule,
                               definition.own->ruleGenerateType,
                               judgement.ruleChanged,
                               judgement.historyAdded};
  if (isBroken) {
    explainer_->Breaks(judged);
  } else {
    explainer_->Fits(judged);
  }
  return isBroken;
}

void KSRuleInstance::Evaluation::GenerateHistoryData(const VarInfo& variable,
                                                     const std::shared_ptr<KSDataBase>& point,
                                                     HistoryDataBase& history) {
  if (WrappingDifference(subject_.time, history.GetLastTime()) <= intervalTime_) return;
  history.AddData(point,
                  variable.dataType == KSDataTable ? kTablesWithoutRule : kValuesWithoutRule);
  CollectHistory(variable, history.ToString());
}

void KSRuleInstance::Evaluation::LogRefusedHistory(const VarInfo& variable) {
  if (!refusedHistories_.emplace(variable.interfaceValue, variable.variableName).second) return;
  KS_LOG(kModule, kProcessVariable, kSourceFile, kLogError,
         "History of variable:%s is refused, device:%s, interface:%s.",
         variable.variableName.c_str(), subject_.deviceName.c_str(),
         variable.interfaceValue.c_str());
}

}  // namespace keelstone
