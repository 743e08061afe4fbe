#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base64.h"
#include "platform/json_node.h"
#include "platform/json_value.h"
#include "platform/numbers.h"
#include "platform/utf8.h"

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

void AppendEscape(std::string& text, unsigned char c) {
  const char letter = kEscapes[c];
  text += '\\';
  text += letter;
  if (letter != 'u') return;
  text += "00";
  text += "0123456789abcdef"[c >> 4U];
  text += "0123456789abcdef"[c & 0xFU];
}

void AppendQuoted(std::string& text, std::string_view bytes) {
  text += '"';
  std::size_t begin = 0;  // of the run that stands as it is
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (kEscapes[c] == 0) continue;
    text.append(bytes, begin, i - begin);
    AppendEscape(text, c);
    begin = i + 1;
  }
  text.append(bytes, begin);
  text += '"';
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

  std::string& text_;
  const JsonWriteOptions& options_;
  std::vector<Frame> frames_;
};

void TextWriter::Write(const JsonValue& root) {
  Begin(root);
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
  text_ += value.isArray() ? '[' : '{';
  frames_.push_back({&value, 0});
  return false;
}

void TextWriter::GoOnWithArray() {
  Frame& frame = frames_.back();
  const std::vector<JsonValue>& elements = JsonNodes::Elements(*frame.container);
  while (frame.next < elements.size()) {
    if (frame.next > 0) text_ += ',';
    if (!Begin(elements[frame.next++])) return;
  }
  text_ += ']';
  frames_.pop_back();
}

void TextWriter::GoOnWithObject() {
  Frame& frame = frames_.back();
  const std::vector<JsonMember>& members = JsonNodes::Members(*frame.container);
  while (frame.next < members.size()) {
    if (frame.next > 0) text_ += ',';
    const JsonMember& member = members[frame.next++];
    WriteString(member.key);
    text_ += ':';
    if (!Begin(member.value)) return;
  }
  text_ += '}';
  frames_.pop_back();
}

void TextWriter::WriteScalar(const JsonValue& value) {
  switch (value.type()) {
    case JsonType::Int:
    case JsonType::Time:
      AppendNumber(text_, JsonNodes::Integer(value));
      break;
    case JsonType::UInt:
      AppendNumber(text_, JsonNodes::Unsigned(value));
      break;
    case JsonType::Real:
      AppendNumber(text_, JsonNodes::Real(value));
      break;
    case JsonType::Boolean:
      text_ += JsonNodes::Boolean(value) ? "true" : "false";
      break;
    case JsonType::String:
      WriteString(JsonNodes::Bytes(value));
      break;
    case JsonType::Binary:
      text_ += '"';
      AppendBase64(text_, JsonNodes::Bytes(value));
      text_ += '"';
      break;
    default:
      text_ += "null";
      break;
  }
}

void TextWriter::WriteString(std::string_view bytes) {
  if (options_.replaceInvalidUtf8 && FirstInvalidUtf8(bytes) != bytes.size()) {
    AppendQuoted(text_, ReplaceInvalidUtf8(bytes));
  } else {
    AppendQuoted(text_, bytes);
  }
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
