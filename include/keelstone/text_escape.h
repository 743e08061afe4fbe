#ifndef KEELSTONE_TEXT_ESCAPE_H
#define KEELSTONE_TEXT_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "keelstone/export.h"

namespace keelstone {

/// Appends a JSON string with its quotes. Escaped are only the quote, the
/// backslash and what is below U+0020 (by the short forms of JSON, else by four hexadecimal
/// digits in lower case); every other byte stands as it is.
KEELSTONE_EXPORT void AppendJsonString(std::string& out, std::string_view bytes);

/// How many bytes the character at the front of a text takes when it is a control
/// character, ends a line or turns the direction of writing; 0: it is none, or not UTF-8.
KEELSTONE_EXPORT std::size_t UnsafeLength(std::string_view bytes) noexcept;

/// Appends a text from outside as one that a terminal can be shown: control characters,
/// those that turn the direction of writing, and bytes that are not UTF-8 stand escaped.
/// Beyond `limit` bytes the text is cut, with "…" at its end.
KEELSTONE_EXPORT void AppendPrintable(std::string& out, std::string_view bytes,
                                      std::size_t limit = static_cast<std::size_t>(-1));
KEELSTONE_EXPORT std::string Printable(std::string_view bytes,
                                       std::size_t limit = static_cast<std::size_t>(-1));

}  // namespace keelstone

#endif  // KEELSTONE_TEXT_ESCAPE_H
