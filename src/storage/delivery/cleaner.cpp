#include "keelstone/cleaner.h"

#include <boost/thread/thread.hpp>

#include "keelstone/clock.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/ini_reader.h"

namespace keelstone {

CKSCleaner::~CKSCleaner() { Stop(); }

void CKSCleaner::SetDomainId(const std::string& domainId) {
  const MutexLock lock(mutex_);
  domainId_ = domainId;
}

std::string CKSCleaner::GetDomainId() {
  const MutexLock lock(mutex_);
  return domainId_;
}

void CKSCleaner::SetDomainName(const std::string& domainName) {
  const MutexLock lock(mutex_);
  domainName_ = domainName;
}

std::string CKSCleaner::GetDomainName() {
  const MutexLock lock(mutex_);
  return domainName_;
}

void CKSCleaner::SetCurrAllParserPaths(const std::vector<std::string>& paths) {
  const MutexLock lock(mutex_);
  parserPaths_ = paths;
}

std::vector<std::string> CKSCleaner::GetCurrAllParserPaths() {
  const MutexLock lock(mutex_);
  return parserPaths_;
}

void CKSCleaner::Clean() {
  const MutexLock lock(mutex_);
  requests_.insert(Clock::LocalUtcMsecTime());
  wake_.NotifyAll();
}

void CKSCleaner::CleanData() {
  const auto manager = KSDomainDataManager::Instance()->GetKSDataManager(GetDomainId());
  manager->RemoveRuleDefinitionNoExistSource(GetCurrAllParserPaths(), kVariableSourceParser);
}

void CKSCleaner::thread_sleep() {
  // Outside the lock: the reader of ini files may log, and a host's callback ask for a
  // cleaning.
  const int days = IniReader::GetInt("kscleaner", "frequency", 1, "fix_frontctlr.ini");
  if (days <= 0) {
    boost::this_thread::yield();
    return;
  }
  const auto deadline =
      boost::chrono::steady_clock::now() + boost::chrono::hours(std::int64_t{24} * days);
  const MutexLock lock(mutex_);
  while (!stopping_ && requests_.empty() && wake_.WaitUntil(mutex_, deadline)) {
  }
}

void CKSCleaner::inner_thread_func() {
  {
    const MutexLock lock(mutex_);
    // All were made before this pass, whatever the clock has been set to since.
    requests_.clear();
  }
  CleanData();
}

}  // namespace keelstone
