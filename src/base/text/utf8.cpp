#include "base/text/utf8.h"

#include <cstdint>
#include <cstring>

namespace keelstone {
namespace {

/// Bounds of a sequence's second byte; every later byte is 0x80 to 0xBF.
struct Lead {
  std::size_t length;
  unsigned char low;
  unsigned char high;
};

/// What a lead byte from 0x80 on demands; length 0 for a byte that begins nothing.
Lead LeadOf(unsigned char byte) noexcept {
  if (byte < 0xC2) return {0, 0, 0};
  if (byte < 0xE0) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte < 0xF0) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte < 0xF4) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

/// Length of the valid sequence at the start of `bytes` (not empty, not ASCII), or 0.
std::size_t SequenceLength(std::string_view bytes) noexcept {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const Lead lead = LeadOf(at(0));
  if (lead.length == 0 || bytes.size() < lead.length) return 0;
  if (at(1) < lead.low || at(1) > lead.high) return 0;
  for (std::size_t i = 2; i < lead.length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return 0;
  }
  return lead.length;
}

}  // namespace

std::size_t FirstInvalidUtf8(std::string_view bytes) noexcept {
  std::size_t i = 0;
  while (i < bytes.size()) {
    std::uint64_t eight = 0;
    while (bytes.size() - i >= sizeof eight) {
      std::memcpy(&eight, bytes.data() + i, sizeof eight);
      if ((eight & 0x8080808080808080U) != 0) break;
      i += sizeof eight;
    }
    while (i < bytes.size() && static_cast<unsigned char>(bytes[i]) < 0x80) ++i;
    if (i == bytes.size()) break;
    const std::size_t length = SequenceLength(bytes.substr(i));
    if (length == 0) return i;
    i += length;
  }
  return bytes.size();
}

std::string ReplaceInvalidUtf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() + 16);
  for (;;) {
    const std::size_t valid = FirstInvalidUtf8(bytes);
    text.append(bytes.substr(0, valid));
    if (valid == bytes.size()) return text;
    text.append("\xEF\xBF\xBD");
    bytes.remove_prefix(valid + 1);
  }
}

}  // namespace keelstone
