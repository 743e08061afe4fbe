#include "program/report/fingerprint.h"

#include <openssl/evp.h>

#include <cstring>
#include <stdexcept>

namespace keelstone::host {

void PrepareDigests() noexcept {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  for (const EVP_MD* kind : {EVP_md5(), EVP_sha256()}) {
    // One that is refused is refused to those who need it.
    static_cast<void>(EVP_Digest("", 0, digest.data(), nullptr, kind, nullptr));
  }
}

Fingerprint FingerprintOf(std::span<const std::string> texts) {
  // With its length in front of each, no two lists make the same bytes.
  std::string joined;
  for (const std::string& text : texts) {
    joined.append(std::to_string(text.size())).append(":").append(text);
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  if (EVP_Digest(joined.data(), joined.size(), digest.data(), nullptr, EVP_sha256(), nullptr) !=
      1) {
    throw std::runtime_error("the cryptographic library refuses SHA-256");
  }
  Fingerprint print{};
  std::memcpy(print.data(), digest.data(), sizeof print);
  return print;
}

}  // namespace keelstone::host
