#ifndef KEELSTONE_PROGRAM_REPORT_SCRIPT_JSON_H
#define KEELSTONE_PROGRAM_REPORT_SCRIPT_JSON_H

#include <cstdint>
#include <string>
#include <string_view>

#include "keelstone/json_value.h"

namespace keelstone::host {

/// Whole numbers beyond this lose digits in a script.
inline constexpr std::int64_t kScriptSafeInteger = 9007199254740991;

/// JSON that may stand inside a <script> element of a page: what could end the element, and
/// the two line ends that only scripts know, stand escaped; bytes that are not UTF-8 become
/// U+FFFD.
std::string ScriptText(const JsonValue& value);
/// The same for one string, with its quotes.
void AppendScriptString(std::string& out, std::string_view bytes);
/// A number that a script reads exactly; as a string when it cannot.
void AppendScriptNumber(std::string& out, const JsonValue& number);

/// Text from outside as content of an HTML element or attribute: marked characters are
/// escaped, and what is not printable is shown as by AppendPrintable.
void AppendHtml(std::string& out, std::string_view bytes,
                std::size_t limit = static_cast<std::size_t>(-1));

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_SCRIPT_JSON_H
