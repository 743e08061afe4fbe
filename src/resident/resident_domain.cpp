#include "resident/resident_domain.h"

#include <algorithm>

#include "keelstone/domain_data_manager.h"
#include "keelstone/logger.h"
#include "keelstone/unit_data.h"
#include "keelstone/write_behind.h"
#include "storage/load/unit_changes.h"

namespace keelstone {

ResidentDomain::ResidentDomain(std::string id, std::function<void()> renew)
    : id_(std::move(id)), renew_(std::move(renew)), watch_(id_) {}

std::uint64_t ResidentDomain::Readings() { return watch_.Changes(); }

void ResidentDomain::Write() {
  if (Clock::now().time_since_epoch().count() < nextWrite_.load()) return;
  DBWriteWrapper::Instance()->WriteDomain(id_);
}

void ResidentDomain::AddRoom() {
  const MutexLock lock(mutex_);
  const std::size_t wanted = room_ + 1;
  for (std::vector<Entry>* entries : {&unwritten_, &writing_}) {
    if (entries->capacity() < wanted) entries->reserve(std::max<std::size_t>(64, 2 * wanted));
  }
  room_ = wanted;
}

void ResidentDomain::RemoveRoom() noexcept {
  const MutexLock lock(mutex_);
  --room_;
}

void ResidentDomain::NoteUnwritten(const Entry& entry) noexcept {
  const MutexLock lock(mutex_);
  if (std::exchange(entry->isUnwritten, true)) return;
  unwritten_.push_back(entry);
}

bool ResidentDomain::HasRows() {
  const MutexLock lock(mutex_);
  return !unwritten_.empty() || !writing_.empty();
}

bool ResidentDomain::IsOutOfDate(const ResidentEntry& entry, std::uint64_t readings) const {
  return entry.readings.load() != readings ||
         entry.others.load() != OthersUnitChanges(id_, entry.unit.key().deviceName);
}

/// What others have changed of units that are to be written stands. A unit that cannot be read
/// now is written as it is.
void ResidentDomain::GiveWay(const std::vector<Entry>& entries) {
  const std::uint64_t readings = watch_.ChangesNow();
  std::vector<Entry> changed;
  std::vector<UnitKey> keys;
  for (const Entry& entry : entries) {
    if (!IsOutOfDate(*entry, readings)) continue;
    changed.push_back(entry);
    keys.push_back(entry->unit.key());
  }
  if (changed.empty()) return;
  const auto table = KSDomainDataManager::Instance()->GetKSDataManager(id_)->GetObjectRuleTable();
  const auto stored = LoadUnits(*table, keys);
  for (std::size_t i = 0; i < stored.size(); ++i) {
    if (!stored[i]) continue;
    const std::size_t count = changed[i]->unit.GiveWay(stored[i]->rules, stored[i]->histories);
    if (count == 0) continue;
    const UnitKey& key = changed[i]->unit.key();
    KS_LOG("FS_Keelstone", "ResidentDomain::GiveWay", "resident_domain", kLogNotice,
           "Device:%s, source:%s: %zu rows were changed by others, what was learned of them since "
           "is dropped.",
           key.deviceName.c_str(), key.variableSource.c_str(), count);
  }
}

// A unit that is a run's gives what it was before the run.
SourceRows ResidentDomain::Take() {
  std::vector<Entry> taken;
  {
    const MutexLock lock(mutex_);
    taken = unwritten_;
    unwritten_.swap(writing_);
    for (const Entry& entry : taken) entry->isUnwritten = false;
  }
  GiveWay(taken);
  SourceRows rows;
  for (const Entry& entry : taken) entry->unit.Append(rows);
  watch_.BeginWrite(rows);
  return rows;
}

void ResidentDomain::Written(bool isOnDisk) noexcept {
  watch_.EndWrite(isOnDisk);
  const auto rest = isOnDisk ? Clock::duration::zero() : Clock::duration(boost::chrono::seconds(1));
  nextWrite_.store((Clock::now() + rest).time_since_epoch().count());
  const MutexLock lock(mutex_);
  for (const Entry& entry : writing_) {
    entry->unit.Written(isOnDisk);
    if (entry->isUnwritten || !entry->unit.HasUnwritten()) continue;
    entry->isUnwritten = true;
    unwritten_.push_back(entry);
  }
  writing_.clear();
}

}  // namespace keelstone
