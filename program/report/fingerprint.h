#ifndef KEELSTONE_PROGRAM_REPORT_FINGERPRINT_H
#define KEELSTONE_PROGRAM_REPORT_FINGERPRINT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace keelstone::host {

/// Stands for a list of texts, however long they are: half of its SHA-256, which nobody can
/// make two lists share. Any thread.
using Fingerprint = std::array<std::uint64_t, 2>;

struct FingerprintHash {
  std::size_t operator()(const Fingerprint& print) const noexcept { return print[0]; }
};

/// Has the cryptographic library set itself up: when memory ends while it does, later uses
/// end the process. Before anything else.
void PrepareDigests() noexcept;

/// std::runtime_error when the cryptographic library refuses SHA-256.
Fingerprint FingerprintOf(std::span<const std::string> texts);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_FINGERPRINT_H
