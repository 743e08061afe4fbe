#include "keelstone/table_base.h"

#include "keelstone/filesystem.h"

namespace keelstone {

CKSDBOperateBase::CKSDBOperateBase(const std::string& subPath)
    : fileSystem_(std::make_shared<const FSResFileSystem>(VXFileSystem::GetSystemRootFolder() +
                                                          "data" + subPath)) {}

CKSDBOperateBase::~CKSDBOperateBase() = default;

void CKSDBOperateBase::SetDomainId(const std::string& domainId) {
  const WriterLock lock(mutex_);
  domainId_ = domainId;
}

std::string CKSDBOperateBase::GetDomainId() const {
  const ReaderLock lock(mutex_);
  return domainId_;
}

std::string CKSDBOperateBase::GetDBFile(int dbType) const {
  return fileSystem_->GetDBFile(dbType, GetDomainId());
}

}  // namespace keelstone
