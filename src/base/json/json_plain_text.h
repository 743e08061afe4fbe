#ifndef KEELSTONE_BASE_JSON_JSON_PLAIN_TEXT_H
#define KEELSTONE_BASE_JSON_JSON_PLAIN_TEXT_H

#include <string>
#include <string_view>

namespace keelstone {

/// Whether there may be a comment in a JSON text; "//" and "/*" stand in strings, too.
bool MayHoldJsonComment(std::string_view text) noexcept;

/// A JSON text for boost::json's parser: blanks in place of comments, when they are
/// allowed, and zeros in place of the digits of long exponents, so that every byte stays
/// where it is. For the parser refuses "/***/" and exponents beyond 32 bits, and takes
/// "[1,/**/]". What is no JSON before is none after.
std::string PlainJsonText(std::string_view text, bool allowComments);

}  // namespace keelstone

#endif  // KEELSTONE_BASE_JSON_JSON_PLAIN_TEXT_H
