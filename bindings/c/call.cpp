#include "bindings/c/call.h"

#include <algorithm>
#include <cstring>

#include "base/text/utf8.h"
#include "base/threads/thread_owned.h"

namespace keelstone::c {

namespace {

thread_local const char* lastFailure = "";

void Remember(const char* what) noexcept {
  try {
    std::string& text = ThreadOwned<std::string>::Get();
    text = what;
    lastFailure = text.c_str();
  } catch (...) {
    lastFailure = "out of memory";
  }
}

ks_status StatusOf(DomainFault::Kind kind) noexcept {
  switch (kind) {
    case DomainFault::Kind::kNone:
      return KS_OK;
    case DomainFault::Kind::kState:
      return KS_ERROR_STATE;
    case DomainFault::Kind::kInput:
      return KS_ERROR_INPUT;
    case DomainFault::Kind::kDatabase:
      return KS_ERROR_DATABASE;
    case DomainFault::Kind::kWrite:
      return KS_ERROR_WRITE;
    case DomainFault::Kind::kMemory:
      return KS_ERROR_MEMORY;
    case DomainFault::Kind::kForked:
      return KS_USAGE;
    case DomainFault::Kind::kInternal:
      break;
  }
  return KS_ERROR_INTERNAL;
}

ks_status RememberAs(ks_status status, const char* what) noexcept {
  Remember(what);
  return status;
}

}  // namespace

ks_status RememberFailure() noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    return RememberAs(failure.status(), failure.what());
  } catch (...) {
    const DomainFault fault = CaughtFault();
    return RememberAs(StatusOf(fault.kind),
                      fault.text.empty() ? "out of memory" : fault.text.c_str());
  }
}

void Require(const DomainFault& fault) {
  if (fault) throw Failure(StatusOf(fault.kind), fault.text);
}

const char* RememberedFailure() noexcept { return lastFailure; }

std::string_view Text(const char* text, const char* name, std::size_t length) {
  if (text == nullptr) {
    if (length == KS_TERMINATED || length == 0) return {};
    throw Failure(KS_ERROR_ARGUMENT, std::string(name) + " is null and has a length");
  }
  const std::string_view bytes(text, length == KS_TERMINATED ? std::strlen(text) : length);
  if (const std::size_t place = FirstInvalidUtf8(bytes); place < bytes.size()) {
    throw Failure(KS_ERROR_INPUT,
                  std::string(name) + ": not UTF-8 at byte " + std::to_string(place + 1));
  }
  return bytes;
}

std::string_view RequiredText(const char* text, const char* name, std::size_t length) {
  return Text(&Required(text, name), name, length);
}

void TakeBytes(const void* from, std::size_t size, void* to, std::size_t known, std::size_t least,
               const char* name) {
  const auto* const bytes =
      static_cast<const unsigned char*>(&Required(static_cast<const unsigned char*>(from), name));
  if (size < least) {
    throw Failure(KS_ERROR_ARGUMENT, std::string(name) + ": too small a size");
  }
  const std::size_t taken = std::min(size, known);
  std::memcpy(to, bytes, taken);
  if (std::any_of(bytes + taken, bytes + size, [](unsigned char byte) { return byte != 0; })) {
    throw Failure(KS_ERROR_ARGUMENT,
                  std::string(name) + ": has members that this library does not know");
  }
}

void GiveBytes(const void* from, std::size_t known, void* to, std::size_t size, std::size_t least,
               const char* name) {
  auto* const bytes = &Required(static_cast<unsigned char*>(to), name);
  if (size < least) {
    throw Failure(KS_ERROR_ARGUMENT, std::string(name) + ": too small a size");
  }
  const std::size_t given = std::min(size, known);
  std::memcpy(bytes, from, given);
  std::fill(bytes + given, bytes + size, static_cast<unsigned char>(0));
}

}  // namespace keelstone::c
