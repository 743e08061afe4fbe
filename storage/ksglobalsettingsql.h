#ifndef KEELSTONE_STORAGE_KSGLOBALSETTINGSQL_H
#define KEELSTONE_STORAGE_KSGLOBALSETTINGSQL_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "calc/rulesettings.h"
#include "platform/export.h"
#include "platform/json_value.h"
#include "storage/cksdboperatebase.h"

namespace keelstone {

/// Entries of the interface filter; an object's learned rules are not judged when its
/// interface value holds one of them in any letter case.
using InterfaceFilterSet = std::set<std::string>;

/// The global settings of a domain (table "KSGlobalSetting", database type 9). Read once
/// into memory; getters answer copies. Any thread.
class KEELSTONE_EXPORT KSGlobalSettingSql final : public CKSDBOperateBase {
 public:
  explicit KSGlobalSettingSql(const std::string& subPath);
  ~KSGlobalSettingSql() override;

  bool InitDB(const std::string& domainId) override;
  /// Reads the table anew: 1 when it was read (a missing file or table leaves the
  /// defaults), 0 after an error.
  int LoadDBData() override;

  std::string GetRuleTypeJson() const;
  JsonValue GetRuleTypeJsonObj() const;
  std::string GetGeneralSettingJson() const;
  JsonValue GetGeneralSettingJsonObj() const;
  JsonValue GetInterfaceFilter() const;
  /// The set as it stands now; it does not change under its holder.
  std::shared_ptr<const InterfaceFilterSet> GetInterfaceFilterSet() const;
  std::int32_t GetTableLimitcount() const;
  std::int32_t GetStrRowLimitcount() const;
  bool IsEnableDynamicCal() const;
  bool IsEnableKSFunction() const;
  /// The general settings, loaded once per reading of the table. Shared, immutable.
  std::shared_ptr<const RuleSettings> GetRuleSettings() const;

 private:
  void Apply(const JsonValue& row) KS_REQUIRES(mutex_);

  std::string ruleTypeText_ KS_GUARDED_BY(mutex_);
  JsonValue ruleType_ KS_GUARDED_BY(mutex_);
  std::string generalSettingText_ KS_GUARDED_BY(mutex_);
  JsonValue generalSetting_ KS_GUARDED_BY(mutex_);
  std::string interfaceFilterText_ KS_GUARDED_BY(mutex_);
  JsonValue interfaceFilter_ KS_GUARDED_BY(mutex_);
  std::shared_ptr<const InterfaceFilterSet> interfaceFilterSet_ KS_GUARDED_BY(mutex_);
  bool dynamicRule_ KS_GUARDED_BY(mutex_) = true;
  std::int32_t tableLimitCount_ KS_GUARDED_BY(mutex_) = 5000;
  std::int32_t strRowLimitCount_ KS_GUARDED_BY(mutex_) = 100;
  bool engine_ KS_GUARDED_BY(mutex_) = true;
  std::shared_ptr<const RuleSettings> ruleSettings_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_KSGLOBALSETTINGSQL_H
