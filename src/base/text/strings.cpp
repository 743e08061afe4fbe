#include "base/text/strings.h"

#include <string.h>

#include <algorithm>
#include <charconv>

namespace keelstone {

namespace {

/// Position of `part` (not empty) in `text` from `start` on. memmem stays linear where
/// find compares the same bytes again and again.
std::size_t Find(std::string_view text, std::string_view part, std::size_t start) {
  const void* const found =
      ::memmem(text.data() + start, text.size() - start, part.data(), part.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

}  // namespace

std::string_view Trim(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::vector<std::string> Split(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  if (!separator.empty()) {
    for (std::size_t end = Find(text, separator, 0); end != std::string_view::npos;
         end = Find(text, separator, start)) {
      pieces.emplace_back(text.substr(start, end - start));
      start = end + separator.size();
    }
  }
  pieces.emplace_back(text.substr(start));
  return pieces;
}

std::string AsciiLower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

bool ContainsIgnoreCase(std::string_view text, std::string_view part) {
  if (part.empty()) return true;
  if (part.size() > text.size()) return false;
  return Find(AsciiLower(text), AsciiLower(part), 0) != std::string_view::npos;
}

std::string FormatPositional(std::string_view format,
                             std::initializer_list<std::string_view> arguments) {
  std::string text;
  std::size_t done = 0;
  while (done < format.size()) {
    const std::size_t open = std::min(format.find('{', done), format.size());
    text.append(format, done, open - done);
    if (open == format.size()) break;
    std::size_t index = 0;
    const char* const digits = format.data() + open + 1;
    const char* const end = format.data() + format.size();
    const auto [stop, error] = std::from_chars(digits, end, index);
    if (error == std::errc() && stop != end && *stop == '}' && index < arguments.size()) {
      text += arguments.begin()[index];
      done = static_cast<std::size_t>(stop - format.data()) + 1;
    } else {
      text += '{';
      done = open + 1;
    }
  }
  return text;
}

}  // namespace keelstone
