#ifndef KEELSTONE_RESIDENT_DATABASE_WATCH_H
#define KEELSTONE_RESIDENT_DATABASE_WATCH_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include "keelstone/mutex.h"
#include "storage/pending/row_source.h"
#include "storage/resource_adaptor.h"

namespace keelstone {

/// Sees whether anybody else has changed the rule or the history database of a domain: other
/// processes, a file put in the place of another, and whatever in this process is not written
/// between BeginWrite and EndWrite.
///
/// A file is looked at by its status. Where that has moved, or is so young that a further change
/// might not show in it, SQLite's file change counter tells: each commit raises it by one. A
/// descriptor of a database that is closed takes the process's locks on it along, so it is read
/// under the lock record of the database only, while nobody here has it open. Any thread.
class DatabaseWatch {
 public:
  explicit DatabaseWatch(std::string domainId) : domainId_(std::move(domainId)) {}

  /// Counts the changes that were seen. Looks at the files if the last look is a second old and
  /// no write is under way.
  std::uint64_t Changes();
  /// The same with a look at the files now.
  std::uint64_t ChangesNow();

  /// Around the one commit of these rows.
  void BeginWrite(const SourceRows& rows);
  void EndWrite(bool isOnDisk) noexcept;

 private:
  /// What tells one state of a file from another.
  struct Status {
    bool isThere = false;
    bool hasLog = false;  // a write-ahead log beside it, whose commits do not show in the file
    dev_t device = 0;
    ino_t node = 0;
    off_t size = 0;
    std::int64_t modified = 0;  // ns, like what follows
    std::int64_t changed = 0;
    friend bool operator==(const Status&, const Status&) = default;
  };
  struct File {
    std::shared_ptr<LockRecord> record;
    std::string path;
    std::string logPath;
    Status status;
    std::int64_t lookedAt = 0;  // ns of the system's clock
    std::uint32_t counter = 0;
    std::uint32_t commits = 0;  // of the write that is under way
  };

  static Status StatusOf(const std::string& path) noexcept;
  static std::uint32_t CounterOf(const std::string& path) noexcept;
  void Begin() KS_REQUIRES(mutex_);
  void Look() KS_REQUIRES(mutex_);
  static void Read(File& file) noexcept;
  static bool MayHaveMoved(const File& file) noexcept;
  static bool HasMoved(File& file, std::uint32_t ownCommits) noexcept;

  const std::string domainId_;
  Mutex mutex_;  // guards what follows; inside it the registry and the lock records
  std::array<File, 2> files_ KS_GUARDED_BY(mutex_);
  bool hasBegun_ KS_GUARDED_BY(mutex_) = false;
  bool isWriting_ KS_GUARDED_BY(mutex_) = false;
  std::int64_t nextLook_ KS_GUARDED_BY(mutex_) = 0;  // ns of the steady clock
  std::uint64_t changes_ KS_GUARDED_BY(mutex_) = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_RESIDENT_DATABASE_WATCH_H
