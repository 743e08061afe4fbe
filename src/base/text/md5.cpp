#include "base/text/md5.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace keelstone {

struct Md5::Context {
  EVP_MD_CTX* evp = EVP_MD_CTX_new();
  Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { EVP_MD_CTX_free(evp); }
};

namespace {

void Require(bool done) {
  if (!done) throw std::runtime_error("the cryptographic library refuses MD5");
}

}  // namespace

Md5::Md5() : context_(std::make_unique<Context>()) {
  Require(context_->evp != nullptr && EVP_DigestInit_ex(context_->evp, EVP_md5(), nullptr) == 1);
}

Md5::~Md5() = default;

void Md5::Update(std::string_view bytes) {
  Require(EVP_DigestUpdate(context_->evp, bytes.data(), bytes.size()) == 1);
}

std::string Md5::HexDigest() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  Require(EVP_DigestFinal_ex(context_->evp, digest.data(), &length) == 1);
  std::string text;
  text.reserve(2U * length);
  for (unsigned int i = 0; i < length; ++i) {
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    text.push_back(kHexDigits[digest[i] >> 4U]);
    text.push_back(kHexDigits[digest[i] & 0xFU]);
  }
  return text;
}

}  // namespace keelstone
