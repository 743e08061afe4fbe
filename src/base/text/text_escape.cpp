#include "keelstone/text_escape.h"

#include <array>
#include <cstdint>

namespace keelstone {

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

void AppendHexByte(std::string& out, std::string_view prefix, unsigned char byte) {
  out.append(prefix);
  out.push_back(kHexDigits[byte >> 4U]);
  out.push_back(kHexDigits[byte & 0xFU]);
}

/// The letter of a control character's short escape; 0 when it has none.
char ShortEscape(unsigned char c) noexcept {
  switch (c) {
    case '\n':
      return 'n';
    case '\t':
      return 't';
    case '\r':
      return 'r';
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    default:
      return 0;
  }
}

struct Character {
  std::uint32_t code = 0;
  std::size_t length = 0;  // 0: not UTF-8
};

Character FirstCharacter(std::string_view bytes) noexcept {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead < 0xC2   ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || bytes.size() < length) return {};
  std::uint32_t code = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[i]);
    if ((next & 0xC0U) != 0x80U) return {};
    code = code << 6U | (next & 0x3FU);
  }
  constexpr std::array<std::uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kSmallest[length] || code > 0x10FFFF || surrogate) return {};
  return {code, length};
}

/// Control characters of both sets, and the marks that reorder what is shown.
bool IsUnsafe(std::uint32_t code) noexcept {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E ||
         code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::size_t UnsafeLength(std::string_view bytes) noexcept {
  const Character character = bytes.empty() ? Character{} : FirstCharacter(bytes);
  return character.length != 0 && IsUnsafe(character.code) ? character.length : 0;
}

void AppendJsonString(std::string& out, std::string_view bytes) {
  out.push_back('"');
  std::size_t plain = 0;  // start of what is not yet appended
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(bytes, plain, i - plain);
    plain = i + 1;
    if (c >= 0x20) {
      out.push_back('\\');
      out.push_back(static_cast<char>(c));
    } else if (const char letter = ShortEscape(c); letter != 0) {
      out.push_back('\\');
      out.push_back(letter);
    } else {
      AppendHexByte(out, "\\u00", c);
    }
  }
  out.append(bytes, plain);
  out.push_back('"');
}

void AppendPrintable(std::string& out, std::string_view bytes, std::size_t limit) {
  const std::size_t start = out.size();
  while (!bytes.empty()) {
    if (out.size() - start >= limit) {
      out.append("…");
      return;
    }
    const Character character = FirstCharacter(bytes);
    const std::size_t length = character.length == 0 ? 1 : character.length;
    if (character.length != 0 && !IsUnsafe(character.code)) {
      out.append(bytes, 0, length);
    } else if (const char letter = ShortEscape(static_cast<unsigned char>(bytes[0])); letter != 0) {
      out.push_back('\\');
      out.push_back(letter);
    } else {
      for (std::size_t i = 0; i < length; ++i) {
        AppendHexByte(out, "\\x", static_cast<unsigned char>(bytes[i]));
      }
    }
    bytes.remove_prefix(length);
  }
}

std::string Printable(std::string_view bytes, std::size_t limit) {
  std::string text;
  AppendPrintable(text, bytes, limit);
  return text;
}

}  // namespace keelstone
