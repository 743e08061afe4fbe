#ifndef KEELSTONE_HOST_TEXT_ESCAPE_H
#define KEELSTONE_HOST_TEXT_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace keelstone::host {

/// Appends a JSON string with its quotes. Escaped are only '"', '\' and what is below
/// U+0020 (\n \t \r \b \f, else \u00xx in lower case); every other byte stands as it is.
void AppendJsonString(std::string& out, std::string_view bytes);

/// Appends a text from outside as one that a terminal can be shown: control characters,
/// those that turn the direction of writing, and bytes that are not UTF-8 stand escaped.
/// Beyond `limit` bytes the text is cut, with "…" at its end.
void AppendPrintable(std::string& out, std::string_view bytes,
                     std::size_t limit = static_cast<std::size_t>(-1));
std::string Printable(std::string_view bytes, std::size_t limit = static_cast<std::size_t>(-1));

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_TEXT_ESCAPE_H
