#include "bindings/c/domain_handle.h"

#include <map>
#include <set>

#include "keelstone/filesystem.h"
#include "keelstone/text_escape.h"

namespace keelstone::c {

namespace {

/// Who uses the root folder, and which folder each loaded domain lies below.
struct RootRegister {
  static RootRegister& Instance() {
    static RootRegister* const instance = [] {
      auto* const made = new RootRegister;
      ForkGate::InChild([](void* all) { static_cast<RootRegister*>(all)->NoteFork(); }, made);
      return made;
    }();
    return *instance;
  }

  void NoteFork() {
    const MutexLock lock(mutex);
    for (const auto& [domain, root] : roots) inherited.insert(domain);
  }

  Mutex mutex;  // guards the three below; innermost
  std::size_t uses KS_GUARDED_BY(mutex) = 0;
  std::map<std::string, std::string> roots KS_GUARDED_BY(mutex);
  std::set<std::string> inherited KS_GUARDED_BY(mutex);  // loaded by a parent, not opened since
};

}  // namespace

RootUse::RootUse() {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  ++all.uses;
}

RootUse::~RootUse() {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  --all.uses;
}

void DomainHandle::SetStages(const IntakeStages& stages) {
  const MutexLock lock(mutex_);
  stages_ = stages;
}

IntakeStages DomainHandle::Stages() const {
  const MutexLock lock(mutex_);
  return stages_;
}

void SetRoot(const std::string& folder) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  if (all.uses > 0) throw Failure(KS_ERROR_STATE, "a domain or a run is open");
  VXFileSystem::SetSystemRootFolder(folder);
}

void RequireSameRoot(const std::string& domainId) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  const auto known = all.roots.find(domainId);
  if (known == all.roots.end() || known->second == VXFileSystem::GetSystemRootFolder()) return;
  throw Failure(KS_ERROR_STATE, "domain \"" + Printable(domainId) + "\"" + " lies below " +
                                    Printable(known->second) + " as long as the process lives");
}

bool NoteRootOf(const std::string& domainId) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  all.roots.emplace(domainId, VXFileSystem::GetSystemRootFolder());
  return all.inherited.erase(domainId) > 0;
}

}  // namespace keelstone::c
