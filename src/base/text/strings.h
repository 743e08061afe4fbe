#ifndef KEELSTONE_BASE_TEXT_STRINGS_H
#define KEELSTONE_BASE_TEXT_STRINGS_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace keelstone {

/// `text` without the characters of `characters` at both ends.
std::string_view Trim(std::string_view text, std::string_view characters = " \t\r\n");

/// The pieces of `text` between the occurrences of `separator` (not empty); one piece,
/// the text itself, when there is none.
std::vector<std::string> Split(std::string_view text, std::string_view separator);

/// `text` with the ASCII letters in lower case.
std::string AsciiLower(std::string_view text);

/// Whether `text` holds `part`, ASCII letters compared without regard to case. The empty
/// part is in every text.
bool ContainsIgnoreCase(std::string_view text, std::string_view part);

/// `format` with "{0}", "{1}", … replaced by the arguments; a placeholder without an
/// argument stays as it stands.
std::string FormatPositional(std::string_view format,
                             std::initializer_list<std::string_view> arguments);

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_STRINGS_H
