#ifndef KEELSTONE_HOST_CALL_GUARD_H
#define KEELSTONE_HOST_CALL_GUARD_H

#include <stdexcept>
#include <string>

#include "base/threads/fork_gate.h"
#include "keelstone/domain_fault.h"

namespace keelstone {

/// Ends a call of a host with a fault.
class HostFailure : public std::runtime_error {
 public:
  HostFailure(DomainFault::Kind kind, const std::string& what)
      : std::runtime_error(what), kind_(kind) {}
  DomainFault::Kind kind() const noexcept { return kind_; }

 private:
  DomainFault::Kind kind_;
};

/// For a catch block: what was thrown, as a fault. Without memory for its words it has none.
DomainFault CaughtFault() noexcept;

/// kState in the child of a fork() in a log callback.
void RequireUsableProcess();

/// Runs the body of a call, and keeps fork() waiting meanwhile; nothing leaves it.
template <class Body>
DomainFault Guarded(const Body& body) noexcept {
  const ForkGate::Inside inside;
  try {
    RequireUsableProcess();
    body();
    return {};
  } catch (...) {
    return CaughtFault();
  }
}

}  // namespace keelstone

#endif  // KEELSTONE_HOST_CALL_GUARD_H
