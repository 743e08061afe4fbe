#ifndef KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H
#define KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H

#include <cstdint>
#include <string>

#include "bindings/c/handle_table.h"
#include "keelstone/domain.h"

namespace keelstone::c {

/// An open ks_domain, shared with its runs, which outlive the handle. Any thread.
struct DomainHandle {
  static constexpr std::uintptr_t kHandleDigit = 1;
  static constexpr const char* kHandleName = "the domain";

  explicit DomainHandle(const DomainOptions& options) { Require(domain.Open(options)); }
  ~DomainHandle() { domain.Release(); }
  DomainHandle(const DomainHandle&) = delete;
  DomainHandle& operator=(const DomainHandle&) = delete;

  Domain domain;
};

using DomainTable = HandleTable<ks_domain, DomainHandle>;

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_DOMAIN_HANDLE_H
