#include "bench/learned_domain.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <utility>

#include "bench/history_series.h"
#include "bench/raw_tables.h"
#include "calc/ksrulealgmgr.h"
#include "calc/ksruleglobalsetting.h"
#include "storage/dbwritewrapper.h"
#include "storage/ksdomaindatamanager.h"

namespace keelstone::bench {

namespace {

constexpr std::int32_t kFirstTime = 1'700'000'000;  // s
constexpr std::int32_t kStep = 300'000;             // s, beyond every live interval
constexpr std::int32_t kShortStep = 600;            // s, within every one
constexpr std::size_t kVariablesPerInterface = 20;

std::int32_t TimeOf(std::size_t round) {
  return kFirstTime + static_cast<std::int32_t>(round) * kStep;
}

// A device without rules has not run yet: its histories end a round earlier.
std::size_t RoundsStored(const Device& device) {
  return kHistoryPoints + (device.hasRules ? 1 : 0);
}

std::int32_t TimeOfNextRun(const Device& device, Moment moment) {
  const std::int32_t newest = TimeOf(RoundsStored(device) - 1);
  return newest + (moment == Moment::kHistoryOld ? kStep : kShortStep);
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

void RequireThat(bool holds, const Device& device, const char* what) {
  if (!holds) throw std::runtime_error(device.name + ": " + what);
}

void ProcessAll(KSRuleInstance& instance, const Device& device,
                const std::vector<VarInfo>& variables) {
  for (const VarInfo& variable : variables) {
    RequireThat(instance.ProcessVariable(variable), device, "a variable was refused");
  }
}

}  // namespace

const char* DataTypeName(EnumKSDataType dataType) {
  return dataType == KSDataInt64 ? "int64" : dataType == KSDataFloat ? "float" : "double";
}

LearnedDomain::LearnedDomain(const WorkRoot& root, EnumKSDataType dataType, std::uint64_t seed)
    : dataType_(dataType), id_(DataTypeName(dataType)) {
  const RawTables tables(root.DomainFolder(id_));
  tables.CreateSettings(DefaultGeneralSettings().toString());
  tables.CreateTables();
  DefineVariables();
  for (const bool hasRules : {true, false}) {
    const std::string prefix = hasRules ? "learned-" : "unlearned-";
    for (const EnumRuleType kind : kLearnedKinds) {
      devices_.push_back(MakeDevice(prefix + RuleTypeName(kind), hasRules, {kind}, seed++));
    }
    devices_.push_back(
        MakeDevice(prefix + "mix", hasRules, {kLearnedKinds.begin(), kLearnedKinds.end()}, seed++));
  }
  DBWriteWrapper::Instance()->WriteDomain(id_);
  for (Device& device : devices_) ReadHistories(device);
}

void LearnedDomain::DefineVariables() const {
  std::vector<RuleDefinitionData> definitions;
  for (std::size_t i = 0; i < kVariablesPerInterface; ++i) {
    definitions.emplace_back(kRuleTypeNone, kVariableSourceParser, "", kSource,
                             "counter" + std::to_string(i), 1, "");
    definitions.back().enableFlag = true;
  }
  if (!ManagerOf(id_)->AddRuleDefinitions(definitions)) {
    throw std::runtime_error("the variable rules cannot be written");
  }
}

Device LearnedDomain::MakeDevice(const std::string& name, bool hasRules,
                                 const std::vector<EnumRuleType>& kinds, std::uint64_t seed) {
  Device device;
  device.name = name;
  device.hasRules = hasRules;
  std::mt19937_64 random(seed);
  std::vector<VarInfo> learning;
  std::vector<ObjectRuleHistoryData> rows;
  for (std::size_t i = 0; i < kVariablesPerDevice; ++i) {
    const EnumRuleType kind = kinds[random() % kinds.size()];
    const std::vector<std::int64_t> series = MakeSeries(kind, kHistoryPoints + 2, random);
    const auto history = MakeHistory(dataType_);
    for (std::size_t round = 0; round < kHistoryPoints; ++round) {
      history->AddData(MakePoint(dataType_, TimeOf(round), series[round]), kHistoryPoints);
    }
    VarInfo variable = MakeVariable(dataType_, i);
    ObjectRuleHistoryData& row = rows.emplace_back();
    row.history = history->ToString();
    row.object.deviceName = name;
    row.object.interfaceValue = variable.interfaceValue;
    row.variableSource = kSource;
    row.variableName = variable.variableName;
    variable.valueText = ValueText(dataType_, series[kHistoryPoints]);
    learning.push_back(variable);
    variable.valueText = ValueText(dataType_, series[RoundsStored(device)]);
    device.variables.push_back(std::move(variable));
    device.kinds.push_back(kind);
  }
  ManagerOf(id_)->SetRuleHistoryData(rows);
  if (hasRules) Learn(device, learning);
  return device;
}

// The run in which the engine learns the rules of a device.
void LearnedDomain::Learn(Device& device, const std::vector<VarInfo>& values) const {
  const auto instance = Load(device, TimeOf(kHistoryPoints));
  ProcessAll(*instance, device, values);
  const auto& learned = instance->GetUpdateResultData()->GetKSRuleUpdateResults();
  RequireThat(learned.size() == values.size(), device, "not every rule was learned");
  for (std::size_t i = 0; i < learned.size(); ++i) {
    RequireThat(learned[i]->nRuleId == device.kinds[i], device, "another kind was learned");
  }
  instance->SerializeLocalDB();
}

void LearnedDomain::ReadHistories(Device& device) const {
  DevParserHistory histories;
  ObjectDefine object;
  object.deviceName = device.name;
  ManagerOf(id_)->GetRuleHistoryData(histories, &object, kSource, "", kVariableSourceParser);
  for (const VarInfo& variable : device.variables) {
    device.histories.push_back(histories[variable.interfaceValue][variable.variableName]);
    RequireThat(!device.histories.back().empty(), device, "a history is missing");
  }
}

std::unique_ptr<KSRuleInstance> LearnedDomain::Load(const Device& device, std::int32_t time) const {
  auto instance = std::make_unique<KSRuleInstance>(kSource, "node-1", device.name, "", "", "", id_,
                                                   "", time, false);
  RequireThat(instance->InitCacheData() && instance->InitHistoryData(), device, "nothing to load");
  return instance;
}

std::unique_ptr<KSRuleInstance> LearnedDomain::Load(const Device& device, Moment moment) const {
  return Load(device, TimeOfNextRun(device, moment));
}

void LearnedDomain::Verify(const Device& device, Moment moment) const {
  const auto instance = Load(device, moment);
  ProcessAll(*instance, device, device.variables);
  instance->SerializeLocalDB();
  const std::string added =
      "{\"liveTime\":" + std::to_string(TimeOfNextRun(device, moment)) + ",\"dataValue\":";
  auto* const cache = DBWriteWrapper::Instance();
  for (const VarInfo& variable : device.variables) {
    std::string history;
    const auto rule = cache->GetCachedRuleDefinition(id_, device.name, variable.interfaceValue,
                                                     kSource, "", variable.variableName);
    if (rule) history = rule->history;
    cache->GetCachedHistoryData(id_, device.name, variable.interfaceValue, kSource, "",
                                variable.variableName, history);
    const bool wasAdded = history.find(added) != std::string::npos;
    RequireThat(wasAdded == (moment == Moment::kHistoryOld), device,
                "a variable was not evaluated as its benchmark says");
  }
}

}  // namespace keelstone::bench
