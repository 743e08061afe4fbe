#ifndef KEELSTONE_DATA_MANAGER_H
#define KEELSTONE_DATA_MANAGER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/block_setting_table.h"
#include "keelstone/export.h"
#include "keelstone/global_setting_table.h"
#include "keelstone/json_value.h"
#include "keelstone/mutex.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/rule_records.h"
#include "keelstone/variable_rule_table.h"

namespace keelstone {

/// Where the databases lie: true below "data/FSParserData" of the system root folder,
/// false below "data" itself. Set it before the first use of a domain.
KEELSTONE_EXPORT extern bool g_bIsParserProcess;

/// All persistent data of one domain. Made by KSDomainDataManager and shared by whoever
/// works on the domain. What the tables keep in memory is read under their own locks; an
/// operation on object rules opens the database and holds its process-wide lock. Any
/// thread.
class KEELSTONE_EXPORT KSDataManagerSql {
 public:
  /// Empty tables of no domain, until Init.
  KSDataManagerSql();
  KSDataManagerSql(const KSDataManagerSql&) = delete;
  KSDataManagerSql& operator=(const KSDataManagerSql&) = delete;

  /// Stores the domain id and loads the four tables.
  void Init(const std::string& domainId);
  // Each makes its table anew and loads it.
  void InitKSGlobalSetting();
  void InitKSObjectRule();
  void InitKSVariableRule();
  void InitKSBlockSetting();
  // Each loads its table again; object rules are not kept in memory, so theirs does
  // nothing.
  void InvalidateKSGlobalSettingCaches();
  void InvalidateKSVariableRuleCaches();
  void InvalidateKSObjectRuleCaches();
  void InvalidateKSBlockSettingCaches();

  // Global settings: see KSGlobalSettingSql.
  std::string GetRuleTypeJson() const;
  std::string GetGeneralSettingJson() const;
  JsonValue GetRuleTypeJsonObj() const;
  JsonValue GetGeneralSettingJsonObj() const;
  JsonValue GetInterfaceFilter() const;
  std::shared_ptr<const InterfaceFilterSet> GetInterfaceFilterSet() const;
  std::int32_t GetTableLimitcount() const;
  std::int32_t GetStrRowLimitcount() const;
  bool IsEnableDynamicCal() const;
  bool IsEnableKSFunction() const;
  bool AreGlobalSettingsRead() const;
  std::shared_ptr<const RuleSettings> GetRuleSettings() const;

  // Variable rules: see KSVariableRuleSql. Mind the order of name and source.
  int GetRuleDefinitionData(RuleDefinitionData& out, const std::string& variableName,
                            const std::string& variableSource, const std::string& param,
                            Enum_VariableSourceType type) const;
  bool IsExistRuleDefinition(const std::string& variableName, const std::string& variableSource,
                             Enum_VariableSourceType type) const;
  bool HasVariableRules() const;
  [[nodiscard]] bool AddRuleDefinitions(const std::vector<RuleDefinitionData>& definitions);

  // Block periods: see KSBlockSettingSql.
  int GetBlockTimeByObjectId(std::vector<std::pair<std::int64_t, std::int64_t>>& out,
                             const ObjectDefine* object);

  // Object rules and histories: see KSObjectRuleSql.
  int GetRuleDefinitionDataByDev(DevParserRule& out, const ObjectDefine* object,
                                 const std::string& variableSource, const std::string& param,
                                 Enum_VariableSourceType type);
  int GetRuleDefinitionDataByDevInf(RuleDefinitionMap& out, const ObjectDefine* object,
                                    const std::string& variableSource, const std::string& param,
                                    Enum_VariableSourceType type);
  bool IsExistRuleDefinitionByDevice(const ObjectDefine* object, const std::string& variableSource,
                                     const std::string& param, Enum_RuleGenerateType generateType,
                                     Enum_VariableSourceType type);
  int GetRuleHistoryData(DevParserHistory& out, const ObjectDefine* object,
                         const std::string& variableSource, const std::string& param,
                         Enum_VariableSourceType type);
  int SetRuleAlgParam(const std::vector<ObjectRuleData>& rows);
  int SetRuleAlgParam(const RuleDefinitionMap& definitions, const ObjectDefine* object,
                      const std::string& variableSource, const std::string& param,
                      Enum_VariableSourceType type);
  int SetRuleHistoryData(const std::vector<ObjectRuleHistoryData>& rows);
  int SetRuleHistoryData(const std::string& historyData, const ObjectDefine* object,
                         const std::string& variableSource, const std::string& variableName,
                         const std::string& param, Enum_VariableSourceType type);
  int RemoveRuleDefinitionData(const ObjectDefine* object, const std::string& variableSource,
                               const std::string& variableName, const std::string& param,
                               Enum_VariableSourceType type);
  int RemoveRuleHistoryData(const ObjectDefine* object, const std::string& variableSource,
                            const std::string& variableName, const std::string& param,
                            Enum_VariableSourceType type);
  int RemoveRuleHistoryDatas(
      std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>>&
          items);
  int RemoveRuleDefinitionDataNoVar(const ObjectDefine* object, const std::string& variableSource,
                                    const std::string& param, Enum_VariableSourceType type);
  int RemoveRuleDefinitionNoExistSource(const std::vector<std::string>& sources,
                                        Enum_VariableSourceType type);
  int RemoveRuleDefinitionNoExistDevice(const std::vector<std::string>& devices,
                                        Enum_VariableSourceType type);

  /// The object-rule table itself, for bulk work.
  std::shared_ptr<KSObjectRuleSql> GetObjectRuleTable() const;

 private:
  // One table and its lock, which guards the pointer (never empty) and the lookups made
  // through it. No file is read or written under such a lock; they are never nested.
  template <class Table>
  class Place {
   public:
    explicit Place(std::shared_ptr<Table> table) : table_(std::move(table)) {}
    std::shared_ptr<Table> Get() const {
      const ReaderLock lock(mutex_);
      return table_;
    }
    void Set(std::shared_ptr<Table> table) {
      const WriterLock lock(mutex_);
      table_.swap(table);
    }
    template <class Lookup, class... Arguments>
    auto Ask(Lookup lookup, Arguments&... arguments) const {
      const ReaderLock lock(mutex_);
      return std::invoke(lookup, *table_, arguments...);
    }

   private:
    mutable SharedMutex mutex_;
    std::shared_ptr<Table> table_ KS_GUARDED_BY(mutex_);
  };

  std::string GetDomainId() const;

  Place<KSGlobalSettingSql> globalSetting_;
  Place<KSObjectRuleSql> objectRule_;
  Place<KSVariableRuleSql> variableRule_;
  Place<KSBlockSettingSql> blockSetting_;
  mutable Mutex domainMutex_;  // guards domainId_; innermost
  std::string domainId_ KS_GUARDED_BY(domainMutex_);
};

/// Counts the readings of any domain's global settings: as long as the number stays the
/// same, what was fetched of them before is what they are. Lock-free.
KEELSTONE_EXPORT std::uint64_t GlobalSettingsGeneration() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_DATA_MANAGER_H
