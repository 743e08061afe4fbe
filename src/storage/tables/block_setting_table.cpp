#include "keelstone/block_setting_table.h"

#include <set>

#include "keelstone/database_files.h"
#include "keelstone/json_value.h"
#include "storage/tables/data_rows.h"

namespace keelstone {

namespace {

constexpr const char* kSource = "ksblocksettingsql";
constexpr TableOperation kLoad{.table = "KSBlockSetting",
                               .dbType = kDbBlockSetting,
                               .function = "KSBlockSettingSql::LoadDBData",
                               .source = kSource,
                               .failedName = "select * from KSBlockSetting"};

std::shared_ptr<const BlockSettingItem> ReadRow(const JsonValue& row) {
  std::set<std::string> devices;
  const JsonValue& nodes = row["nodes"];
  if (nodes.isArray()) {
    ReadMember(row, "nodes", [&devices](const JsonValue& list) {
      for (const JsonValue& node : list) devices.insert(TextMember(node, "deviceName"));
    });
  }
  return std::make_shared<const BlockSettingItem>(
      std::move(devices), TimeMember(row, "blockTimeStart"), TimeMember(row, "blockTimeEnd"));
}

}  // namespace

KSBlockSettingSql::KSBlockSettingSql(const std::string& subPath) : CKSDBOperateBase(subPath) {}

KSBlockSettingSql::~KSBlockSettingSql() = default;

bool KSBlockSettingSql::InitDB(const std::string& domainId) {
  SetDomainId(domainId);
  return true;
}

void KSBlockSettingSql::RequireRow(const JsonValue& row) { ReadRow(row); }

int KSBlockSettingSql::LoadDBData() {
  const DeferredLog log(kLoad.function, kSource);
  const MutexLock change(changeMutex_);
  std::vector<std::shared_ptr<const BlockSettingItem>> read;
  const TableOutcome outcome =
      ReadDataRows(*this, kLoad, [&read](const JsonValue& row) { read.push_back(ReadRow(row)); });
  if (IsFailure(outcome)) return 0;
  const WriterLock lock(mutex_);
  items_.swap(read);
  return 1;
}

int KSBlockSettingSql::GetBlockTimeByObjectId(
    std::vector<std::pair<std::int64_t, std::int64_t>>& out, const ObjectDefine* object) const {
  if (object == nullptr) return 0;
  int found = 0;
  const ReaderLock lock(mutex_);
  for (const auto& item : items_) {
    if (item->devices.count(object->deviceName) == 0) continue;
    out.emplace_back(item->start, item->end);
    ++found;
  }
  return found;
}

}  // namespace keelstone
