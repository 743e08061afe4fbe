#ifndef KEELSTONE_CLEANER_H
#define KEELSTONE_CLEANER_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/mutex.h"
#include "keelstone/thread_wrapper.h"

namespace keelstone {

/// Removes the rules and histories of parsers that a domain no longer has: when asked
/// (Clean), and otherwise every "frequency" days (section "kscleaner" of fix_frontctlr.ini,
/// 1 when absent, read before each wait; 0 or less cleans without pause). A host owns one a
/// domain, sets id, name and parser paths, and calls Start; the library starts none on its
/// own. Set the paths anew whenever the domain's parsers change, then ask for a cleaning.
///
/// Any thread. A class derived from this one calls Stop in its own destructor.
class KEELSTONE_EXPORT CKSCleaner : public ThreadWrapper {
 public:
  CKSCleaner() = default;
  ~CKSCleaner() override;

  void SetDomainId(const std::string& domainId);
  std::string GetDomainId();
  void SetDomainName(const std::string& domainName);
  std::string GetDomainName();
  /// The variable sources to keep, compared exactly. An empty list removes nothing.
  void SetCurrAllParserPaths(const std::vector<std::string>& paths);
  std::vector<std::string> GetCurrAllParserPaths();

  /// Wakes the thread for a pass that begins after this call; requests that come while it
  /// works are served by one more pass.
  void Clean();
  /// Cleans once, on the calling thread.
  void CleanData();

 protected:
  void thread_sleep() override;
  void inner_thread_func() override;

 private:
  std::set<std::int64_t> requests_ KS_GUARDED_BY(mutex_);  // ms since the epoch
  std::string domainId_ KS_GUARDED_BY(mutex_);
  std::string domainName_ KS_GUARDED_BY(mutex_);
  std::vector<std::string> parserPaths_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_CLEANER_H
