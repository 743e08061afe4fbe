#include "resident/resident_domain.h"

#include <algorithm>

#include "keelstone/write_behind.h"

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

// A unit that is a run's gives what it was before the run.
SourceRows ResidentDomain::Take() {
  std::vector<Entry> taken;
  {
    const MutexLock lock(mutex_);
    taken = unwritten_;
    unwritten_.swap(writing_);
    for (const Entry& entry : taken) entry->isUnwritten = false;
  }
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
