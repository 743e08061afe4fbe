#ifndef KEELSTONE_GLOBAL_SETTING_TABLE_H
#define KEELSTONE_GLOBAL_SETTING_TABLE_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/mutex.h"
#include "keelstone/table_base.h"

namespace keelstone {

class RuleSettings;

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
  /// Reads the table anew: 1 when it was read, 0 after an error, which leaves what was
  /// loaded before. A missing file or table changes nothing, so at first it leaves the
  /// defaults. A reading resets the two switches and the texts; what else has no row keeps
  /// its value. A row that is no JSON object or has a member of the wrong kind is logged
  /// and passed over.
  int LoadDBData() override;
  /// Throws JsonError, naming the member, for a row that would be passed over.
  static void RequireRow(const JsonValue& row);

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
  /// Whether the table was read at least once, or there was none to read. Until then the
  /// defaults stand in for settings that are there.
  bool IsRead() const;
  /// The general settings, loaded once per reading of the table. Shared, immutable.
  std::shared_ptr<const RuleSettings> GetRuleSettings() const;

 private:
  struct Content;  // what the readings of the table have left; immutable

  std::shared_ptr<const Content> GetContent() const;

  // Held while the table is read, so that the newest reading stands; taken before mutex_
  // and the lock record.
  Mutex changeMutex_;
  std::shared_ptr<const Content> content_ KS_GUARDED_BY(mutex_);  // never empty
  bool isRead_ KS_GUARDED_BY(mutex_) = false;
};

}  // namespace keelstone

#endif  // KEELSTONE_GLOBAL_SETTING_TABLE_H
