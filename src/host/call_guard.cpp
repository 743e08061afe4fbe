#include "host/call_guard.h"

#include <new>

namespace keelstone {

namespace {

using Kind = DomainFault::Kind;

DomainFault FaultOf(Kind kind, const char* text) noexcept {
  try {
    return {kind, text};
  } catch (const std::exception&) {
    return {kind, {}};
  }
}

}  // namespace

DomainFault CaughtFault() noexcept {
  try {
    throw;
  } catch (const HostFailure& failure) {
    return FaultOf(failure.kind(), failure.what());
  } catch (const std::bad_alloc&) {
    return FaultOf(Kind::kMemory, "out of memory");
  } catch (const std::length_error&) {
    return FaultOf(Kind::kMemory, "out of memory: a text is too long");
  } catch (const std::exception& error) {
    return FaultOf(Kind::kInternal, error.what());
  } catch (...) {
    return FaultOf(Kind::kInternal, "an exception that says nothing");
  }
}

void RequireUsableProcess() {
  if (ForkGate::IsUsable()) return;
  throw HostFailure(Kind::kState, "this process is the child of a fork() in a log callback");
}

}  // namespace keelstone
