#include "storage/resource_adaptor.h"

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid.hpp>

#include "keelstone/database_files.h"

namespace keelstone {

namespace {

/// The name space of all identifiers that are made from texts.
constexpr Guid kNamespace = {{0x5b, 0x1e, 0x0c, 0x9a, 0x7d, 0x43, 0x4f, 0x28, 0x9a, 0x61, 0xd0,
                              0x3e, 0x8c, 0x52, 0xb7, 0x16}};

}  // namespace

Guid GuidFromText(const std::string& text) {
  return boost::uuids::name_generator_sha1(kNamespace)(text);
}

FSResourceAdaptor& FSResourceAdaptor::Instance() {
  static FSResourceAdaptor* const instance = new FSResourceAdaptor;
  return *instance;
}

std::shared_ptr<LockRecord> FSResourceAdaptor::RegisterTable(const Guid& domain, int dbType,
                                                             int tableType) {
  if (DBFileName(dbType) == nullptr) return nullptr;
  const MutexLock lock(mutex_);
  std::shared_ptr<LockRecord>& record = records_[{domain, dbType, tableType}];
  if (record == nullptr) record = std::make_shared<LockRecord>();
  return record;
}

}  // namespace keelstone
