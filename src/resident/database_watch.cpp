#include "resident/database_watch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/domain_data_manager.h"

namespace keelstone {

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // ns
// File systems stamp files with a clock that stands for some milliseconds at a time, some for a
// second or two: a change within that time may leave the stamp as it is.
constexpr std::int64_t kYoung = 2 * kSecond;

std::int64_t Nanoseconds(const timespec& time) noexcept {
  return static_cast<std::int64_t>(time.tv_sec) * kSecond + time.tv_nsec;
}

std::int64_t Now(clockid_t clock) noexcept {
  timespec time{};
  ::clock_gettime(clock, &time);
  return Nanoseconds(time);
}

}  // namespace

DatabaseWatch::Status DatabaseWatch::StatusOf(const std::string& path) noexcept {
  Status status;
  struct stat file{};
  if (::stat(path.c_str(), &file) != 0) return status;
  status.isThere = true;
  status.device = file.st_dev;
  status.node = file.st_ino;
  status.size = file.st_size;
  status.modified = Nanoseconds(file.st_mtim);
  status.changed = Nanoseconds(file.st_ctim);
  return status;
}

/// Bytes 24 to 27 of the file, big-endian; 0 where they cannot be read.
std::uint32_t DatabaseWatch::CounterOf(const std::string& path) noexcept {
  constexpr off_t kPlace = 24;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return 0;
  std::array<unsigned char, 4> bytes{};
  const ssize_t count = ::pread(fd, bytes.data(), bytes.size(), kPlace);
  ::close(fd);
  if (count != static_cast<ssize_t>(bytes.size())) return 0;
  std::uint32_t counter = 0;
  for (const unsigned char byte : bytes) counter = counter << 8U | byte;
  return counter;
}

void DatabaseWatch::Begin() {
  if (hasBegun_) return;
  const auto table =
      KSDomainDataManager::Instance()->GetKSDataManager(domainId_)->GetObjectRuleTable();
  const Guid domain = GuidFromText(domainId_);
  for (std::size_t i = 0; i < files_.size(); ++i) {
    const int dbType = i == 0 ? kDbObjectRule : kDbObjectHistory;
    files_[i].record = FSResourceAdaptor::Instance().RegisterTable(domain, dbType, dbType);
    files_[i].path = table->GetDBFile(dbType);
    files_[i].logPath = files_[i].path + "-wal";
    Read(files_[i]);
  }
  hasBegun_ = true;
}

void DatabaseWatch::Read(File& file) noexcept {
  const MutexLock lock(file.record->mutex);
  file.lookedAt = Now(CLOCK_REALTIME);
  file.status = StatusOf(file.path);
  file.status.hasLog = StatusOf(file.logPath).isThere;
  file.counter = file.status.isThere ? CounterOf(file.path) : 0;
}

/// Whether the file may be another than when it was read.
bool DatabaseWatch::MayHaveMoved(const File& file) noexcept {
  if (file.status.hasLog || StatusOf(file.logPath).isThere) return true;
  return StatusOf(file.path) != file.status || file.lookedAt - file.status.modified < kYoung;
}

/// Reads the file anew; whether more has happened to it than so many commits.
bool DatabaseWatch::HasMoved(File& file, std::uint32_t ownCommits) noexcept {
  const Status before = file.status;
  const std::uint32_t counter = file.counter;
  Read(file);
  // A commit of rows that are all as they were does not count.
  const bool isOwn = file.counter == counter || file.counter == counter + ownCommits;
  const Status& after = file.status;
  return before.hasLog || after.hasLog || before.isThere != after.isThere ||
         before.device != after.device || before.node != after.node || !isOwn;
}

std::uint64_t DatabaseWatch::Changes() {
  const MutexLock lock(mutex_);
  Begin();
  const std::int64_t now = Now(CLOCK_MONOTONIC);
  if (isWriting_ || now < nextLook_) return changes_;
  nextLook_ = now + kSecond;
  Look();
  return changes_;
}

std::uint64_t DatabaseWatch::ChangesNow() {
  const MutexLock lock(mutex_);
  Begin();
  if (!isWriting_) Look();
  return changes_;
}

void DatabaseWatch::Look() {
  for (File& file : files_) {
    if (MayHaveMoved(file) && HasMoved(file, 0)) ++changes_;
  }
}

void DatabaseWatch::BeginWrite(const SourceRows& rows) {
  const bool hasHistories =
      !rows.histories.empty() ||
      std::any_of(rows.rules.begin(), rows.rules.end(), [](const ObjectRuleData& row) {
        return !row.definitions.begin()->second->history.empty();
      });
  const MutexLock lock(mutex_);
  Begin();
  for (File& file : files_) {
    if (HasMoved(file, 0)) ++changes_;
  }
  files_[0].commits = rows.rules.empty() ? 0 : 1;
  files_[1].commits = hasHistories ? 1 : 0;
  isWriting_ = true;
}

void DatabaseWatch::EndWrite(bool isOnDisk) noexcept {
  const MutexLock lock(mutex_);
  if (!std::exchange(isWriting_, false)) return;
  for (File& file : files_) {
    if (HasMoved(file, isOnDisk ? file.commits : 0)) ++changes_;
  }
}

}  // namespace keelstone
