#ifndef KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H
#define KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "bindings/c/handle_table.h"
#include "keelstone/intake_stages.h"
#include "keelstone/judged_values.h"
#include "keelstone/mutex.h"

namespace keelstone::c {

/// Keeps the system root folder where it is while a domain or run is open.
class RootUse {
 public:
  RootUse();
  ~RootUse();
  RootUse(const RootUse&) = delete;
  RootUse& operator=(const RootUse&) = delete;
};

/// Sets the root; Failure while there is a RootUse.
void SetRoot(const std::string& folder);
/// Failure when the domain was opened below another root; by who holds a RootUse.
void RequireSameRoot(const std::string& domainId);
/// Notes below which root the domain is open for the rest of the process; likewise. Answers
/// whether what the process knows of the domain was read by its parent before fork().
bool NoteRootOf(const std::string& domainId);

/// An open ks_domain. Any thread.
struct DomainHandle {
  static constexpr std::uintptr_t kHandleDigit = 1;
  static constexpr const char* kHandleName = "the domain";

  explicit DomainHandle(std::string domainId) : id(std::move(domainId)) {}

  void SetStages(const IntakeStages& stages);
  IntakeStages Stages() const;

  const std::string id;
  std::atomic<bool> enrolls{false};
  // Runs outlive the handle.
  const std::shared_ptr<JudgedValues> judged = std::make_shared<JudgedValues>();
  RootUse use;

 private:
  mutable Mutex mutex_;  // guards the stages; innermost
  IntakeStages stages_ KS_GUARDED_BY(mutex_);
};

using DomainTable = HandleTable<ks_domain, DomainHandle>;

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H
