#include "bench/learned_device.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <utility>

#include "bench/history_series.h"
#include "bench/raw_tables.h"
#include "keelstone/algorithm_manager.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/write_behind.h"

namespace keelstone::bench {

namespace {

constexpr std::int32_t kFirstTime = 1'700'000'000;  // s
constexpr std::int32_t kStep = 300'000;             // s, beyond every live interval
constexpr std::int32_t kShortStep = 600;            // s, within every one
constexpr std::size_t kVariablesPerInterface = 20;

std::int32_t TimeOf(std::size_t round) {
  return kFirstTime + static_cast<std::int32_t>(round) * kStep;
}

VarInfo MakeVariable(EnumKSDataType dataType, std::size_t index) {
  VarInfo variable;
  variable.variableName = "counter" + std::to_string(index % kVariablesPerInterface);
  variable.dataType = dataType;
  variable.variableType = 1;
  variable.interfaceValue = "GigabitEthernet0/" + std::to_string(index / kVariablesPerInterface);
  variable.interfacePath = "interfaces/" + variable.interfaceValue;
  return variable;
}

std::shared_ptr<KSDataManagerSql> ManagerOf(const std::string& domainId) {
  return KSDomainDataManager::Instance()->GetKSDataManager(domainId);
}

}  // namespace

const char* NameOfType(EnumKSDataType dataType) {
  if (dataType == KSDataString) return "string";
  return dataType == KSDataInt64 ? "int64" : dataType == KSDataFloat ? "float" : "double";
}

LearnedDevice::LearnedDevice(const BenchSettings& settings, const std::string& domainId,
                             const Shape& shape)
    : domainId_(domainId), shape_(shape) {
  const RawTables tables(settings.root.DomainFolder(domainId_));
  tables.CreateSettings(DefaultGeneralSettings().toString());
  tables.CreateTables();
  DefineVariables();
  StoreHistories(settings.seed);
  if (shape_.hasRules) LearnRules();
  DBWriteWrapper::Instance()->WriteDomain(domainId_);
  ReadHistories();
}

void LearnedDevice::DefineVariables() const {
  std::vector<RuleDefinitionData> definitions;
  for (std::size_t i = 0; i < kVariablesPerInterface; ++i) {
    definitions.emplace_back(kRuleTypeNone, kVariableSourceParser, "", kSource,
                             "counter" + std::to_string(i), 1, "");
    definitions.back().enableFlag = true;
  }
  Require(ManagerOf(domainId_)->AddRuleDefinitions(definitions), "cannot be defined");
}

void LearnedDevice::StoreHistories(std::uint64_t seed) {
  std::mt19937_64 random(seed + static_cast<std::uint64_t>(shape_.dataType));
  std::vector<ObjectRuleHistoryData> rows;
  for (std::size_t i = 0; i < shape_.variables; ++i) {
    const EnumRuleType kind = shape_.dataType == KSDataString
                                  ? kLearnedTextKinds[random() % kLearnedTextKinds.size()]
                                  : kLearnedKinds[random() % kLearnedKinds.size()];
    const std::vector<std::int64_t> series =
        MakeSeries(kind, kHistoryPoints + 2 + shape_.laterRuns, random);
    const auto history = MakeHistory(shape_.dataType);
    for (std::size_t round = 0; round < kHistoryPoints; ++round) {
      history->AddData(MakePoint(shape_.dataType, TimeOf(round), series[round]), kHistoryPoints);
    }
    VarInfo variable = MakeVariable(shape_.dataType, i);
    ObjectRuleHistoryData& row = rows.emplace_back();
    row.history = history->ToString();
    row.object.deviceName = name_;
    row.object.interfaceValue = variable.interfaceValue;
    row.variableSource = kSource;
    row.variableName = variable.variableName;
    kinds_.push_back(kind);
    variable.valueText = ValueText(shape_.dataType, series[kHistoryPoints]);
    learning_.push_back(variable);
    if (shape_.hasRules) {
      variable.valueText = ValueText(shape_.dataType, series[kHistoryPoints + 1]);
    }
    variables_.push_back(std::move(variable));
    later_.emplace_back(series.begin() + kHistoryPoints + 2, series.end());
  }
  ManagerOf(domainId_)->SetRuleHistoryData(rows);
}

void LearnedDevice::LearnRules() const {
  const auto instance = InstanceAt(TimeOf(kHistoryPoints));
  Require(instance->InitCacheData() && instance->InitHistoryData(), "nothing to load");
  ProcessAll(*instance, learning_);
  const auto& learned = instance->GetUpdateResultData()->GetKSRuleUpdateResults();
  Require(learned.size() == learning_.size(), "not every rule was learned");
  for (std::size_t i = 0; i < learned.size(); ++i) {
    Require(learned[i]->nRuleId == kinds_[i], "another kind was learned");
  }
  instance->SerializeLocalDB();
}

void LearnedDevice::ReadHistories() {
  DevParserHistory histories;
  ObjectDefine object;
  object.deviceName = name_;
  ManagerOf(domainId_)->GetRuleHistoryData(histories, &object, kSource, "", kVariableSourceParser);
  for (const VarInfo& variable : variables_) {
    histories_.push_back(histories[variable.interfaceValue][variable.variableName]);
    Require(!histories_.back().empty(), "a history is missing");
  }
}

std::int32_t LearnedDevice::TimeOfNextRun(Moment moment) const {
  const std::int32_t newest = TimeOf(shape_.hasRules ? kHistoryPoints : kHistoryPoints - 1);
  return newest + (moment == Moment::kHistoryOld ? kStep : kShortStep);
}

std::unique_ptr<KSRuleInstance> LearnedDevice::InstanceAt(std::int32_t time) const {
  return std::make_unique<KSRuleInstance>(kSource, "node-1", name_, "", "", "", domainId_, "", time,
                                          false);
}

std::unique_ptr<KSRuleInstance> LearnedDevice::Instance(Moment moment) const {
  return InstanceAt(TimeOfNextRun(moment));
}

std::unique_ptr<KSRuleInstance> LearnedDevice::LaterInstance(std::size_t run) const {
  return InstanceAt(TimeOf(kHistoryPoints + 2 + run));
}

void LearnedDevice::TakeValues(std::size_t run, std::vector<VarInfo>& variables) const {
  for (std::size_t i = 0; i < variables.size(); ++i) {
    variables[i].valueText = ValueText(shape_.dataType, later_[i].at(run));
  }
}

std::unique_ptr<KSRuleInstance> LearnedDevice::Load(Moment moment) const {
  auto instance = Instance(moment);
  Require(instance->InitCacheData() && instance->InitHistoryData(), "nothing to load");
  return instance;
}

void LearnedDevice::Require(bool holds, const char* what) const {
  if (!holds) throw std::runtime_error(domainId_ + ": " + what);
}

void LearnedDevice::ProcessAll(KSRuleInstance& instance,
                               const std::vector<VarInfo>& variables) const {
  for (const VarInfo& variable : variables) {
    Require(instance.ProcessVariable(variable), "a variable was refused");
  }
}

void LearnedDevice::Verify(Moment moment) const {
  const auto instance = Load(moment);
  ProcessAll(*instance, variables_);
  instance->SerializeLocalDB();
  const std::string added =
      "{\"liveTime\":" + std::to_string(TimeOfNextRun(moment)) + ",\"dataValue\":";
  auto* const cache = DBWriteWrapper::Instance();
  for (const VarInfo& variable : variables_) {
    std::string history;
    const auto rule = cache->GetCachedRuleDefinition(domainId_, name_, variable.interfaceValue,
                                                     kSource, "", variable.variableName);
    if (rule) history = rule->history;
    cache->GetCachedHistoryData(domainId_, name_, variable.interfaceValue, kSource, "",
                                variable.variableName, history);
    const bool wasAdded = history.find(added) != std::string::npos;
    Require(wasAdded == (moment == Moment::kHistoryOld), "not evaluated as its case says");
  }
}

}  // namespace keelstone::bench
