#ifndef KEELSTONE_STORAGE_RESOURCE_ADAPTOR_H
#define KEELSTONE_STORAGE_RESOURCE_ADAPTOR_H

#include <boost/uuid/uuid.hpp>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "keelstone/mutex.h"

namespace keelstone {

/// A 128-bit identifier made from a text: equal texts give equal identifiers.
using Guid = boost::uuids::uuid;
/// The name-based identifier (RFC 4122 version 5) of a domain id.
Guid GuidFromText(const std::string& text);

/// The lock of one database of one domain, process-wide. Whoever works on the file
/// holds `mutex` from before the path is resolved until the file is closed; no other
/// lock of the library is taken meanwhile but those of logging.
struct LockRecord {
  Mutex mutex;
};

/// Hands out the lock records. Records live as long as the process. Any thread.
class FSResourceAdaptor {
 public:
  static FSResourceAdaptor& Instance();

  /// The record of (domain, database type, table type), made on first request; empty
  /// when the type is none of EnumDbType.
  std::shared_ptr<LockRecord> RegisterTable(const Guid& domain, int dbType, int tableType);

 private:
  FSResourceAdaptor() = default;
  ~FSResourceAdaptor() = delete;

  Mutex mutex_;  // guards records_; innermost
  std::map<std::tuple<Guid, int, int>, std::shared_ptr<LockRecord>> records_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_RESOURCE_ADAPTOR_H
