#include "host/root_use.h"

#include <cstddef>
#include <map>
#include <set>

#include "base/threads/fork_gate.h"
#include "host/call_guard.h"
#include "keelstone/filesystem.h"
#include "keelstone/mutex.h"
#include "keelstone/text_escape.h"

namespace keelstone {

namespace {

std::atomic<std::uint64_t> forks{0};

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
    ++forks;
    const MutexLock lock(mutex);
    uses = 0;
    for (const auto& [domain, root] : roots) inherited.insert(domain);
  }

  void MoveTo(const std::string& folder) KS_REQUIRES(mutex) {
    const std::string before = VXFileSystem::GetSystemRootFolder();
    if (before == folder || before == folder + '/') return;
    if (uses > 0) {
      throw HostFailure(DomainFault::Kind::kState,
                        "a domain or a run is open below " + Printable(before));
    }
    VXFileSystem::SetSystemRootFolder(folder);
  }

  Mutex mutex;  // guards the three below; innermost
  std::size_t uses KS_GUARDED_BY(mutex) = 0;
  std::map<std::string, std::string> roots KS_GUARDED_BY(mutex);
  std::set<std::string> inherited KS_GUARDED_BY(mutex);  // loaded by a parent, not opened since
};

}  // namespace

std::uint64_t ForkCount() noexcept { return forks.load(std::memory_order_relaxed); }

RootUse::RootUse(const std::string& folder)
    : process_((static_cast<void>(RootRegister::Instance()), ForkCount())) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  if (!folder.empty()) all.MoveTo(folder);
  ++all.uses;
}

void RootUse::End() {
  if (IsInherited() || isOver_.exchange(true)) return;
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  --all.uses;
}

bool RootUse::IsAnyLeft() {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  return all.uses > 0;
}

void SetRoot(const std::string& folder) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  if (all.uses > 0) {
    throw HostFailure(DomainFault::Kind::kState, "a domain or a run is open");
  }
  VXFileSystem::SetSystemRootFolder(folder);
}

void RequireSameRoot(const std::string& domainId) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  const auto known = all.roots.find(domainId);
  if (known == all.roots.end() || known->second == VXFileSystem::GetSystemRootFolder()) return;
  throw HostFailure(DomainFault::Kind::kState, "domain \"" + Printable(domainId) +
                                                   "\" lies below " + Printable(known->second) +
                                                   " as long as the process lives");
}

bool NoteRootOf(const std::string& domainId) {
  RootRegister& all = RootRegister::Instance();
  const MutexLock lock(all.mutex);
  all.roots.emplace(domainId, VXFileSystem::GetSystemRootFolder());
  return all.inherited.erase(domainId) > 0;
}

}  // namespace keelstone
