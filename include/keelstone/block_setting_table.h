#ifndef KEELSTONE_BLOCK_SETTING_TABLE_H
#define KEELSTONE_BLOCK_SETTING_TABLE_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/mutex.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_base.h"

namespace keelstone {

/// The block periods of a domain (table "KSBlockSetting", database type 12): when named
/// devices are not to be judged. Read once into memory. Any thread.
class KEELSTONE_EXPORT KSBlockSettingSql final : public CKSDBOperateBase {
 public:
  explicit KSBlockSettingSql(const std::string& subPath);
  ~KSBlockSettingSql() override;

  bool InitDB(const std::string& domainId) override;
  /// Reads the table anew: 1 when it was read (a missing file or table is an empty one),
  /// 0 after an error, which leaves what was loaded before. A row that is no JSON object or
  /// has a member of the wrong kind is logged and passed over.
  int LoadDBData() override;
  /// Throws JsonError, naming the member, for a row that would be passed over.
  static void RequireRow(const JsonValue& row);

  /// Appends (start, end), seconds since the epoch, of every period that names the
  /// object's device, in the order of the table; answers how many.
  int GetBlockTimeByObjectId(std::vector<std::pair<std::int64_t, std::int64_t>>& out,
                             const ObjectDefine* object) const;

 private:
  // Held while the table is read, so that the newest reading stands; taken before mutex_
  // and the lock record.
  Mutex changeMutex_;
  std::vector<std::shared_ptr<const BlockSettingItem>> items_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_BLOCK_SETTING_TABLE_H
