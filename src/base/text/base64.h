#ifndef KEELSTONE_BASE_TEXT_BASE64_H
#define KEELSTONE_BASE_TEXT_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace keelstone {

/// Appends the base64 text of `bytes` (RFC 4648, padded, without line ends).
void AppendBase64(std::string& text, std::string_view bytes);

/// The bytes of a base64 text; nothing when a character, the length or the padding is
/// not what AppendBase64 writes.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_BASE64_H
