#ifndef KEELSTONE_DOMAIN_FAULT_H
#define KEELSTONE_DOMAIN_FAULT_H

#include <cstdint>
#include <string>

namespace keelstone {

/// Why a call of Domain or Findings did not do what it was asked; true when there is a reason:
///
///   if (const DomainFault fault = domain.Close()) std::cerr << fault.text << '\n';
struct [[nodiscard]] DomainFault {
  /// What sort of reason.
  enum class Kind : std::uint8_t {
    kNone,      // it did
    kState,     // not at this point: a closed domain, a run that waits for its own thread
    kInput,     // a text, number, table or line that is none
    kDatabase,  // a database is missing or cannot be used
    kWrite,     // not all could be written
    kMemory,    // memory ran short
    kForked,    // the object is one of the process that this one was forked from
    kInternal,  // a fault of the library
  };
  Kind kind = Kind::kNone;
  std::string text;  // what was wrong, in words

  explicit operator bool() const noexcept { return kind != Kind::kNone; }
};

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_FAULT_H
