#ifndef KEELSTONE_HOST_FINDINGS_STATE_H
#define KEELSTONE_HOST_FINDINGS_STATE_H

#include <memory>
#include <vector>

#include "host/domain_session.h"
#include "keelstone/findings.h"

namespace keelstone {

/// What Findings hold.
struct Findings::State {
  /// Takes the run over; gives its unit back at once where there is nothing to store.
  void Take(const ParsedRun& run, DomainSession::Evaluated evaluated);
  void Store();
  /// Drops what is not stored, and gives the unit back.
  void LetGo() noexcept;

  std::shared_ptr<DomainSession> session;
  DomainSession::Evaluated done;
  std::vector<RefusedVariable> refused;
  bool isOver = false;  // stored or discarded
};

}  // namespace keelstone

#endif  // KEELSTONE_HOST_FINDINGS_STATE_H
