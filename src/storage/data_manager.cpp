#include "keelstone/data_manager.h"

#include <atomic>
#include <utility>

#include "keelstone/performance.h"
#include "storage/domain/domain_place.h"
#include "storage/settings_generation.h"

namespace keelstone {

bool g_bIsParserProcess = true;

namespace {

std::atomic<std::uint64_t> settingsGeneration{0};

// A table of the domain, loaded and seen by nobody yet.
template <class Table>
std::shared_ptr<Table> MakeTable(const std::string& domainId) {
  auto table = std::make_shared<Table>(DomainsSubPath());
  table->InitDB(domainId);
  table->LoadDBData();
  return table;
}

}  // namespace

std::uint64_t GlobalSettingsGeneration() noexcept {
  return settingsGeneration.load(std::memory_order_acquire);
}

void AdvanceGlobalSettingsGeneration() noexcept {
  settingsGeneration.fetch_add(1, std::memory_order_acq_rel);
}

KSDataManagerSql::KSDataManagerSql()
    : globalSetting_(std::make_shared<KSGlobalSettingSql>(DomainsSubPath())),
      objectRule_(std::make_shared<KSObjectRuleSql>(DomainsSubPath())),
      variableRule_(std::make_shared<KSVariableRuleSql>(DomainsSubPath())),
      blockSetting_(std::make_shared<KSBlockSettingSql>(DomainsSubPath())) {}

std::string KSDataManagerSql::GetDomainId() const {
  const MutexLock lock(domainMutex_);
  return domainId_;
}

void KSDataManagerSql::Init(const std::string& domainId) {
  {
    const MutexLock lock(domainMutex_);
    domainId_ = domainId;
  }
  InitKSGlobalSetting();
  InitKSObjectRule();
  InitKSVariableRule();
  InitKSBlockSetting();
}

// Tables are read outside the locks that guard their pointers, so that nobody who
// evaluates waits for the disk; the old table answers until the new one is in its place.

void KSDataManagerSql::InitKSGlobalSetting() {
  globalSetting_.Set(MakeTable<KSGlobalSettingSql>(GetDomainId()));
  AdvanceGlobalSettingsGeneration();
}

void KSDataManagerSql::InitKSObjectRule() {
  objectRule_.Set(MakeTable<KSObjectRuleSql>(GetDomainId()));
}

void KSDataManagerSql::InitKSVariableRule() {
  variableRule_.Set(MakeTable<KSVariableRuleSql>(GetDomainId()));
}

void KSDataManagerSql::InitKSBlockSetting() {
  blockSetting_.Set(MakeTable<KSBlockSettingSql>(GetDomainId()));
}

void KSDataManagerSql::InvalidateKSGlobalSettingCaches() { globalSetting_.Get()->LoadDBData(); }

void KSDataManagerSql::InvalidateKSVariableRuleCaches() { variableRule_.Get()->LoadDBData(); }

void KSDataManagerSql::InvalidateKSObjectRuleCaches() { objectRule_.Get()->LoadDBData(); }

void KSDataManagerSql::InvalidateKSBlockSettingCaches() { blockSetting_.Get()->LoadDBData(); }

std::string KSDataManagerSql::GetRuleTypeJson() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetRuleTypeJson);
}

std::string KSDataManagerSql::GetGeneralSettingJson() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetGeneralSettingJson);
}

JsonValue KSDataManagerSql::GetRuleTypeJsonObj() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetRuleTypeJsonObj);
}

JsonValue KSDataManagerSql::GetGeneralSettingJsonObj() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetGeneralSettingJsonObj);
}

JsonValue KSDataManagerSql::GetInterfaceFilter() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetInterfaceFilter);
}

std::shared_ptr<const InterfaceFilterSet> KSDataManagerSql::GetInterfaceFilterSet() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetInterfaceFilterSet);
}

std::int32_t KSDataManagerSql::GetTableLimitcount() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetTableLimitcount);
}

std::int32_t KSDataManagerSql::GetStrRowLimitcount() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetStrRowLimitcount);
}

bool KSDataManagerSql::IsEnableDynamicCal() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::IsEnableDynamicCal);
}

bool KSDataManagerSql::AreGlobalSettingsRead() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::IsRead);
}

bool KSDataManagerSql::IsEnableKSFunction() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::IsEnableKSFunction);
}

std::shared_ptr<const RuleSettings> KSDataManagerSql::GetRuleSettings() const {
  return globalSetting_.Ask(&KSGlobalSettingSql::GetRuleSettings);
}

int KSDataManagerSql::GetRuleDefinitionData(RuleDefinitionData& out,
                                            const std::string& variableName,
                                            const std::string& variableSource,
                                            const std::string& param,
                                            Enum_VariableSourceType type) const {
  return variableRule_.Ask([&](const KSVariableRuleSql& table) {
    return table.GetRuleDefinitionData(out, variableSource, variableName, param, type);
  });
}

bool KSDataManagerSql::IsExistRuleDefinition(const std::string& variableName,
                                             const std::string& variableSource,
                                             Enum_VariableSourceType type) const {
  return variableRule_.Ask(&KSVariableRuleSql::IsExistRuleDefinition, variableSource, variableName,
                           type);
}

bool KSDataManagerSql::HasVariableRules() const {
  return variableRule_.Ask(&KSVariableRuleSql::HasDefinitions);
}

bool KSDataManagerSql::AddRuleDefinitions(const std::vector<RuleDefinitionData>& definitions) {
  return variableRule_.Get()->AddRuleDefinitions(definitions);
}

int KSDataManagerSql::GetBlockTimeByObjectId(
    std::vector<std::pair<std::int64_t, std::int64_t>>& out, const ObjectDefine* object) {
  return blockSetting_.Ask(&KSBlockSettingSql::GetBlockTimeByObjectId, out, object);
}

std::shared_ptr<KSObjectRuleSql> KSDataManagerSql::GetObjectRuleTable() const {
  return objectRule_.Get();
}

int KSDataManagerSql::GetRuleDefinitionDataByDev(DevParserRule& out, const ObjectDefine* object,
                                                 const std::string& variableSource,
                                                 const std::string& param,
                                                 Enum_VariableSourceType type) {
  const FSPerformance timing("KSDataManager", "GetRuleDefinitionDataByDev");
  return GetObjectRuleTable()->GetRuleDefinitionDataByDev(out, object, variableSource, param, type);
}

int KSDataManagerSql::GetRuleDefinitionDataByDevInf(RuleDefinitionMap& out,
                                                    const ObjectDefine* object,
                                                    const std::string& variableSource,
                                                    const std::string& param,
                                                    Enum_VariableSourceType type) {
  return GetObjectRuleTable()->GetRuleDefinitionDataByDevInf(out, object, variableSource, param,
                                                             type);
}

bool KSDataManagerSql::IsExistRuleDefinitionByDevice(const ObjectDefine* object,
                                                     const std::string& variableSource,
                                                     const std::string& param,
                                                     Enum_RuleGenerateType generateType,
                                                     Enum_VariableSourceType type) {
  return GetObjectRuleTable()->IsExistRuleDefinitionByDevice(object, variableSource, param,
                                                             generateType, type);
}

int KSDataManagerSql::GetRuleHistoryData(DevParserHistory& out, const ObjectDefine* object,
                                         const std::string& variableSource,
                                         const std::string& param, Enum_VariableSourceType type) {
  const FSPerformance timing("KSDataManager", "GetRuleHistoryData - out out");
  return GetObjectRuleTable()->GetRuleHistoryData(out, object, variableSource, param, type);
}

int KSDataManagerSql::SetRuleAlgParam(const std::vector<ObjectRuleData>& rows) {
  return GetObjectRuleTable()->SetRuleAlgParam(rows);
}

int KSDataManagerSql::SetRuleAlgParam(const RuleDefinitionMap& definitions,
                                      const ObjectDefine* object, const std::string& variableSource,
                                      const std::string& param, Enum_VariableSourceType type) {
  return GetObjectRuleTable()->SetRuleAlgParam(definitions, object, variableSource, param, type);
}

int KSDataManagerSql::SetRuleHistoryData(const std::vector<ObjectRuleHistoryData>& rows) {
  return GetObjectRuleTable()->SetRuleHistoryData(rows);
}

int KSDataManagerSql::SetRuleHistoryData(const std::string& historyData, const ObjectDefine* object,
                                         const std::string& variableSource,
                                         const std::string& variableName, const std::string& param,
                                         Enum_VariableSourceType type) {
  return GetObjectRuleTable()->SetRuleHistoryData(historyData, object, variableSource, variableName,
                                                  param, type);
}

int KSDataManagerSql::RemoveRuleDefinitionData(const ObjectDefine* object,
                                               const std::string& variableSource,
                                               const std::string& variableName,
                                               const std::string& param,
                                               Enum_VariableSourceType type) {
  return GetObjectRuleTable()->RemoveRuleDefinitionData(object, variableSource, variableName, param,
                                                        type);
}

int KSDataManagerSql::RemoveRuleHistoryData(const ObjectDefine* object,
                                            const std::string& variableSource,
                                            const std::string& variableName,
                                            const std::string& param,
                                            Enum_VariableSourceType type) {
  return GetObjectRuleTable()->RemoveRuleHistoryData(object, variableSource, variableName, param,
                                                     type);
}

int KSDataManagerSql::RemoveRuleHistoryDatas(
    std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>>&
        items) {
  return GetObjectRuleTable()->RemoveRuleHistoryDatas(items);
}

int KSDataManagerSql::RemoveRuleDefinitionDataNoVar(const ObjectDefine* object,
                                                    const std::string& variableSource,
                                                    const std::string& param,
                                                    Enum_VariableSourceType type) {
  return GetObjectRuleTable()->RemoveRuleDefinitionDataNoVar(object, variableSource, param, type);
}

int KSDataManagerSql::RemoveRuleDefinitionNoExistSource(const std::vector<std::string>& sources,
                                                        Enum_VariableSourceType type) {
  return GetObjectRuleTable()->RemoveRuleDefinitionNoExistSource(sources, type);
}

int KSDataManagerSql::RemoveRuleDefinitionNoExistDevice(const std::vector<std::string>& devices,
                                                        Enum_VariableSourceType type) {
  return GetObjectRuleTable()->RemoveRuleDefinitionNoExistDevice(devices, type);
}

}  // namespace keelstone
