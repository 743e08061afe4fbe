#ifndef KEELSTONE_DOMAIN_DATA_MANAGER_H
#define KEELSTONE_DOMAIN_DATA_MANAGER_H

#include <map>
#include <memory>
#include <string>

#include "keelstone/data_manager.h"
#include "keelstone/export.h"
#include "keelstone/mutex.h"

namespace keelstone {

/// The process-wide registry of domains. Made on first use, never destroyed. Any thread.
class KEELSTONE_EXPORT KSDomainDataManager {
 public:
  static KSDomainDataManager* Instance();

  /// The data manager of the domain, made and loaded on the first request (a second
  /// thread that asks for any domain meanwhile waits). A domain without files is an empty
  /// one. Domains stay until the process ends.
  std::shared_ptr<KSDataManagerSql> GetKSDataManager(const std::string& domainId);

 private:
  KSDomainDataManager() = default;
  ~KSDomainDataManager() = delete;

  // Guards domains_. Held exclusively while a new domain loads; table locks and database
  // lock records are taken inside it.
  SharedMutex mutex_;
  std::map<std::string, std::shared_ptr<KSDataManagerSql>> domains_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_DATA_MANAGER_H
