#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/json/json_node.h"
#include "base/text/base64.h"
#include "base/text/growing_text.h"
#include "base/text/numbers.h"
#include "base/text/utf8.h"
#include "keelstone/json_value.h"

namespace keelstone {
namespace {

/// For each byte the letter of its short escape, 'u' for a numbered one, 0 for none.
constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> escapes{};
  for (std::size_t c = 0; c < 0x20; ++c) escapes[c] = 'u';
  escapes['\n'] = 'n';
  escapes['\t'] = 't';
  escapes['\r'] = 'r';
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  return escapes;
}();

constexpr std::size_t kLongestEscape = 6;

char* WriteEscape(char* to, unsigned char c) noexcept {
  const char letter = kEscapes[c];
  *to++ = '\\';
  *to++ = letter;
  if (letter != 'u') return to;
  *to++ = '0';
  *to++ = '0';
  *to++ = "0123456789abcdef"[c >> 4U];
  *to++ = "0123456789abcdef"[c & 0xFU];
  return to;
}

/// How many bytes of a word, from its first one on, need no escape.
std::size_t PlainBytes(std::uint64_t word) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kTops = 0x8080808080808080U;
  const auto zeros = [](std::uint64_t x) { return (x - kOnes) & ~x & kTops; };
  const std::uint64_t controls = (word - 0x20U * kOnes) & ~word & kTops;
  // A carry may mark bytes behind the first that is rightly marked, never before it.
  const std::uint64_t marks = controls | zeros(word ^ (kOnes * '"')) | zeros(word ^ (kOnes * '\\'));
  return static_cast<std::size_t>(std::countr_zero(marks)) / 8;
}

/// Copies bytes up to the first one that needs an escape and moves both ends on.
void CopyPlain(const char*& from, const char* end, char*& to) noexcept {
  if constexpr (std::endian::native == std::endian::little) {
    std::uint64_t word = 0;
    constexpr std::ptrdiff_t kWord = sizeof word;
    if (end - from >= kWord) {
      for (;;) {
        std::memcpy(&word, from, sizeof word);
        std::memcpy(to, &word, sizeof word);
        const std::size_t plain = PlainBytes(word);
        from += plain;
        to += plain;
        if (plain < sizeof word || from == end) return;
        // The last word begins among bytes that are known to be plain.
        const std::ptrdiff_t back = std::max<std::ptrdiff_t>(kWord - (end - from), 0);
        from -= back;
        to -= back;
      }
    }
  }
  while (from != end && kEscapes[static_cast<unsigned char>(*from)] == 0) *to++ = *from++;
}

void PutQuoted(GrowingText& text, std::string_view bytes) {
  const char* from = bytes.data();
  const char* const end = from + bytes.size();
  char* to = text.Room(bytes.size() + 2);
  *to++ = '"';
  for (;;) {
    CopyPlain(from, end, to);
    if (from == end) break;
    text.End(to);
    to = text.Room(kLongestEscape + static_cast<std::size_t>(end - from));
    to = WriteEscape(to, static_cast<unsigned char>(*from++));
  }
  *to++ = '"';
  text.End(to);
}

void PutPlainName(GrowingText& text, std::string_view name) {
  char* to = text.Room(name.size() + 3);
  *to++ = '"';
  to = std::copy(name.begin(), name.end(), to);
  *to++ = '"';
  *to++ = ':';
  text.End(to);
}

/// Writes one value after the other behind a text.
class TextWriter {
 public:
  TextWriter(std::string& text, const JsonWriteOptions& options) : text_(text), options_(options) {}

  void Write(const JsonValue& root);

 private:
  /// An array or object that is being written; a list of these in place of recursion.
  struct Frame {
    const JsonValue* container;
    std::size_t next;
  };

  // Begins an array or object, or writes a scalar whole; true when it is whole.
  bool Begin(const JsonValue& value);
  // These go on with the innermost container until it ends or another one begins.
  void GoOnWithArray();
  void GoOnWithObject();
  void WriteScalar(const JsonValue& value);
  void WriteString(std::string_view bytes);
  void WriteBinary(std::string_view bytes);
  template <class Number>
  void WriteNumberText(Number value) {
    char number[kNumberRoom];
    text_.Put(
        std::string_view(number, static_cast<std::size_t>(WriteNumber(number, value) - number)));
  }

  GrowingText text_;
  const JsonWriteOptions& options_;
  std::vector<Frame> frames_;
};

void TextWriter::Write(const JsonValue& root) {
  if (Begin(root)) return;
  while (!frames_.empty()) {
    if (frames_.back().container->isArray()) {
      GoOnWithArray();
    } else {
      GoOnWithObject();
    }
  }
}

bool TextWriter::Begin(const JsonValue& value) {
  if (!JsonNodes::HasContainer(value)) {
    WriteScalar(value);
    return true;
  }
  text_.Put(value.isArray() ? '[' : '{');
  if (frames_.empty()) frames_.reserve(8);
  frames_.push_back({&value, 0});
  return false;
}

void TextWriter::GoOnWithArray() {
  Frame& frame = frames_.back();
  const std::vector<JsonValue>& elements = JsonNodes::Content(*frame.container);
  while (frame.next < elements.size()) {
    if (frame.next > 0) text_.Put(',');
    if (!Begin(elements[frame.next++])) return;
  }
  text_.Put(']');
  frames_.pop_back();
}

void TextWriter::GoOnWithObject() {
  Frame& frame = frames_.back();
  const std::vector<JsonValue>& values = JsonNodes::Content(*frame.container);
  while (frame.next < values.size()) {
    const JsonKeys& keys = JsonNodes::Keys(*frame.container);
    const std::size_t position = frame.next++;
    if (position > 0) text_.Put(',');
    if (keys.ArePlain()) {
      PutPlainName(text_, keys[position]);
    } else {
      WriteString(keys[position]);
      text_.Put(':');
    }
    if (!Begin(values[position])) return;
  }
  text_.Put('}');
  frames_.pop_back();
}

void TextWriter::WriteScalar(const JsonValue& value) {
  switch (value.type()) {
    case JsonType::Int:
    case JsonType::Time:
      WriteNumberText(JsonNodes::Integer(value));
      break;
    case JsonType::UInt:
      WriteNumberText(JsonNodes::Unsigned(value));
      break;
    case JsonType::Real:
      WriteNumberText(JsonNodes::Real(value));
      break;
    case JsonType::Boolean:
      text_.Put(JsonNodes::Boolean(value) ? std::string_view("true") : std::string_view("false"));
      break;
    case JsonType::String:
      WriteString(JsonNodes::Bytes(value));
      break;
    case JsonType::Binary:
      WriteBinary(JsonNodes::Bytes(value));
      break;
    default:
      text_.Put("null");
      break;
  }
}

void TextWriter::WriteString(std::string_view bytes) {
  if (options_.replaceInvalidUtf8 && FirstInvalidUtf8(bytes) != bytes.size()) {
    PutQuoted(text_, ReplaceInvalidUtf8(bytes));
  } else {
    PutQuoted(text_, bytes);
  }
}

void TextWriter::WriteBinary(std::string_view bytes) {
  std::string base64;
  AppendBase64(base64, bytes);
  text_.Put('"');
  text_.Put(base64);
  text_.Put('"');
}

}  // namespace

void JsonValue::appendTo(std::string& text, const JsonWriteOptions& options) const {
  TextWriter(text, options).Write(*this);
}

std::string JsonValue::toString(const JsonWriteOptions& options) const {
  std::string text;
  appendTo(text, options);
  return text;
}

}  // namespace keelstone
