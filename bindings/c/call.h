#ifndef KEELSTONE_BINDINGS_C_CALL_H
#define KEELSTONE_BINDINGS_C_CALL_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/threads/fork_gate.h"
#include "host/call_guard.h"
#include "keelstone/domain_fault.h"
#include "keelstone/keelstone.h"

/// What every call of the C interface has in common: its answer, its message, its texts.
namespace keelstone::c {

/// Ends a call with a status and what is wrong in words.
class Failure : public std::runtime_error {
 public:
  Failure(ks_status status, const std::string& what) : std::runtime_error(what), status_(status) {}
  ks_status status() const noexcept { return status_; }

 private:
  ks_status status_;
};

/// Ends a call as one of the library behind it has ended; does nothing where that went well.
void Require(const DomainFault& fault);

/// For a catch block: the status of what was thrown, whose words this thread remembers.
ks_status RememberFailure() noexcept;
/// What RememberFailure noted last on this thread.
const char* RememberedFailure() noexcept;

/// Runs the body of a call, and keeps fork() waiting meanwhile; nothing leaves it.
template <class Body>
ks_status Call(const Body& body) noexcept {
  const ForkGate::Inside inside;
  try {
    RequireUsableProcess();
    body();
    return KS_OK;
  } catch (...) {
    return RememberFailure();
  }
}

/// A pointer that must be there.
template <class T>
T& Required(T* pointer, const char* name) {
  if (pointer == nullptr) throw Failure(KS_ERROR_ARGUMENT, std::string(name) + " is null");
  return *pointer;
}

/// A text handed in: UTF-8, else Failure. A null pointer is the empty text, or none at all
/// for RequiredText.
std::string_view Text(const char* text, const char* name, std::size_t length = KS_TERMINATED);
std::string_view RequiredText(const char* text, const char* name,
                              std::size_t length = KS_TERMINATED);

/// A structure that the caller knows in `size` bytes: what is beyond what the library knows
/// must be zero. `least` is the size that the structure had first.
template <class T>
T TakeStructure(const T* from, std::size_t size, std::size_t least, const char* name);
/// The other way; what the library does not know of it becomes zero.
template <class T>
void GiveStructure(const T& from, T* to, std::size_t size, std::size_t least, const char* name);

// The two above for bytes.
void TakeBytes(const void* from, std::size_t size, void* to, std::size_t known, std::size_t least,
               const char* name);
void GiveBytes(const void* from, std::size_t known, void* to, std::size_t size, std::size_t least,
               const char* name);

template <class T>
T TakeStructure(const T* from, std::size_t size, std::size_t least, const char* name) {
  T known{};
  TakeBytes(from, size, &known, sizeof known, least, name);
  return known;
}

template <class T>
void GiveStructure(const T& from, T* to, std::size_t size, std::size_t least, const char* name) {
  GiveBytes(&from, sizeof from, to, size, least, name);
}

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_CALL_H
