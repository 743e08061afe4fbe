#include "base/json/json_plain_text.h"

#include <algorithm>
#include <cstddef>

namespace keelstone {
namespace {

bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

void Overwrite(std::string& text, std::size_t begin, std::size_t end, char c) {
  std::fill(text.begin() + static_cast<std::ptrdiff_t>(begin),
            text.begin() + static_cast<std::ptrdiff_t>(end), c);
}

// Each of these takes the place where something begins and answers where it ends.

std::size_t PassString(const std::string& text, std::size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\') ++at;
  }
  return at + 1;
}

std::size_t BlankComment(std::string& text, std::size_t at) {
  std::size_t end = at + 1;
  if (text.compare(at, 2, "//") == 0) {
    end = std::min(text.find('\n', at), text.size());
  } else if (text.compare(at, 2, "/*") == 0) {
    const std::size_t close = text.find("*/", at + 2);
    // An unfinished comment stays, for the parser to refuse.
    if (close == std::string::npos) return text.size();
    end = close + 2;
  } else {
    return end;
  }
  Overwrite(text, at, end, ' ');
  return end;
}

std::size_t ShortenExponent(std::string& text, std::size_t at) {
  constexpr std::size_t kLongest = 9;  // digits that fit in 32 bits, whatever they are
  ++at;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  std::size_t end = at;
  while (end < text.size() && IsDigit(text[end])) ++end;
  if (end - at > kLongest) Overwrite(text, at, end, '0');
  return end;
}

}  // namespace

bool MayHoldJsonComment(std::string_view text) noexcept {
  for (std::size_t at = text.find('/'); at != std::string_view::npos; at = text.find('/', at + 1)) {
    if (at + 1 < text.size() && (text[at + 1] == '/' || text[at + 1] == '*')) return true;
  }
  return false;
}

std::string PlainJsonText(std::string_view text, bool allowComments) {
  std::string plain(text);
  std::size_t at = 0;
  while (at < plain.size()) {
    const char c = plain[at];
    if (c == '"') {
      at = PassString(plain, at);
    } else if (c == '/' && allowComments) {
      at = BlankComment(plain, at);
    } else if (c == 'e' || c == 'E') {
      at = ShortenExponent(plain, at);
    } else {
      ++at;
    }
  }
  return plain;
}

}  // namespace keelstone
