#include "base/text/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>

namespace keelstone {
namespace {

// libcrypto counts in int, so that long texts are worked on in pieces of whole groups.
constexpr std::size_t kGroupsPerPiece = std::size_t{1} << 24;

unsigned char* Bytes(char* at) { return reinterpret_cast<unsigned char*>(at); }
const unsigned char* Bytes(const char* at) { return reinterpret_cast<const unsigned char*>(at); }

bool IsBase64Digit(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

/// Whether the bits of the last digit that stand for no byte are 0.
bool HasCleanEnd(std::string_view digits, std::size_t padding) {
  static constexpr std::string_view kOne = "AEIMQUYcgkosw048";
  static constexpr std::string_view kTwo = "AQgw";
  if (padding == 0) return true;
  return (padding == 1 ? kOne : kTwo).find(digits.back()) != std::string_view::npos;
}

}  // namespace

void AppendBase64(std::string& text, std::string_view bytes) {
  std::size_t written = text.size();
  // One more byte than the text: the encoder ends each piece with a NUL.
  text.resize(written + (bytes.size() + 2) / 3 * 4 + 1);
  while (!bytes.empty()) {
    const std::size_t piece = std::min(bytes.size(), kGroupsPerPiece * 3);
    const int size =
        EVP_EncodeBlock(Bytes(text.data() + written), Bytes(bytes.data()), static_cast<int>(piece));
    written += static_cast<std::size_t>(size);
    bytes.remove_prefix(piece);
  }
  text.resize(written);
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string_view digits = text;
  while (!digits.empty() && text.size() - digits.size() < 2 && digits.back() == '=') {
    digits.remove_suffix(1);
  }
  const std::size_t padding = text.size() - digits.size();
  // The decoder passes over white space, so what it is given is judged before.
  if (!std::all_of(digits.begin(), digits.end(), IsBase64Digit) || !HasCleanEnd(digits, padding)) {
    return std::nullopt;
  }
  std::string bytes(text.size() / 4 * 3, '\0');
  std::size_t written = 0;
  while (!text.empty()) {
    const std::size_t piece = std::min(text.size(), kGroupsPerPiece * 4);
    const int size =
        EVP_DecodeBlock(Bytes(bytes.data() + written), Bytes(text.data()), static_cast<int>(piece));
    if (size < 0) return std::nullopt;
    written += static_cast<std::size_t>(size);
    text.remove_prefix(piece);
  }
  bytes.resize(written - padding);
  return bytes;
}

}  // namespace keelstone
