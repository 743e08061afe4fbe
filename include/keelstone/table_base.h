#ifndef KEELSTONE_TABLE_BASE_H
#define KEELSTONE_TABLE_BASE_H

#include <cstdint>
#include <memory>
#include <string>

#include "keelstone/database_files.h"
#include "keelstone/export.h"
#include "keelstone/mutex.h"

namespace keelstone {

/// Base of the table classes: the domain served and the resolver of its database files.
/// Any thread.
class KEELSTONE_EXPORT CKSDBOperateBase {
 public:
  virtual ~CKSDBOperateBase();
  virtual bool InitDB(const std::string& domainId) = 0;
  virtual int LoadDBData() { return -1; }

  void SetDomainId(const std::string& domainId);
  std::string GetDomainId() const;
  /// The file of one of this domain's databases; "" for an unknown type.
  std::string GetDBFile(int dbType) const;

 protected:
  /// Databases lie below the system root folder, then "data", then `subPath`.
  explicit CKSDBOperateBase(const std::string& subPath);

  mutable SharedMutex mutex_;  // guards domainId_ and what a derived table has loaded
  std::shared_ptr<const FSResFileSystem> fileSystem_;  // set by the constructor

 private:
  friend class TableFrame;

  std::string domainId_ KS_GUARDED_BY(mutex_);
};

/// How many writes of rules, history and settings have failed in this process: database
/// errors, and rows that had no table to go to. The operations themselves answer as if
/// all were well; a host that promises its rows to be on disk looks here. Any thread.
KEELSTONE_EXPORT std::uint64_t GetFailedWriteCount();

/// How many reads have failed in this process; what an operation could not read it answers
/// as absent. Any thread.
KEELSTONE_EXPORT std::uint64_t GetFailedReadCount();

/// How many operations of this thread, reads and writes, have failed: when the number is
/// the same after an operation as before it, the operation went well.
KEELSTONE_EXPORT std::uint64_t FailedOperationsHere() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_TABLE_BASE_H
