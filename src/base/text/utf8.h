#ifndef KEELSTONE_BASE_TEXT_UTF8_H
#define KEELSTONE_BASE_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace keelstone {

/// Where the first byte stands that is not part of valid UTF-8 (overlong forms,
/// surrogates and what lies beyond U+10FFFF are not valid); the size when there is none.
std::size_t FirstInvalidUtf8(std::string_view bytes) noexcept;

/// `bytes` with U+FFFD in place of each byte that is not part of valid UTF-8.
std::string ReplaceInvalidUtf8(std::string_view bytes);

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_UTF8_H
