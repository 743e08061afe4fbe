#include "base/json/raw_json_scan.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace keelstone {

namespace {

constexpr std::size_t kMaxDepth = 64;
constexpr std::uint64_t kOnes = 0x0101010101010101U;
constexpr std::uint64_t kTops = 0x8080808080808080U;

/// The top bit of each byte that is smaller than `bound`, at most 128; reliable up to the lowest
/// one.
constexpr std::uint64_t BytesBelow(std::uint64_t eight, std::uint64_t bound) noexcept {
  return (eight - kOnes * bound) & ~eight & kTops;
}

/// Likewise of each byte that is a quotation mark, a backslash or a control character.
constexpr std::uint64_t Special(std::uint64_t eight) noexcept {
  return BytesBelow(eight, 0x20) | BytesBelow(eight ^ kOnes * '"', 1) |
         BytesBelow(eight ^ kOnes * '\\', 1);
}

bool IsSpecial(char c) noexcept {
  return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
}

/// What a backslash and this character stand for; 0 for what is not read here.
char Unescaped(char c) noexcept {
  switch (c) {
    case '"':
    case '\\':
    case '/':
      return c;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return 0;
  }
}

}  // namespace

void RawJson::Scan::SkipSpace() noexcept {
  while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) ++at_;
}

bool RawJson::Scan::Skip(char c) noexcept {
  if (at_ == end_ || *at_ != c) return false;
  ++at_;
  return true;
}

bool RawJson::Scan::SkipDigits() noexcept {
  const char* const begin = at_;
  while (at_ != end_ && *at_ >= '0' && *at_ <= '9') ++at_;
  return at_ != begin;
}

void RawJson::Scan::Add(Kind kind, std::size_t begin, std::size_t end) {
  document_.nodes_.push_back({kind, static_cast<std::uint32_t>(end - begin), begin});
}

/// Goes on to the next special byte, or to the end.
void RawJson::Scan::FindStringEnd() noexcept {
  std::uint64_t eight = 0;
  while (end_ - at_ >= static_cast<std::ptrdiff_t>(sizeof eight)) {
    std::memcpy(&eight, at_, sizeof eight);
    if constexpr (std::endian::native == std::endian::little) {
      if (const std::uint64_t special = Special(eight); special != 0) {
        at_ += std::countr_zero(special) / 8;
        return;
      }
      at_ += sizeof eight;
    } else {
      break;
    }
  }
  while (at_ != end_ && !IsSpecial(*at_)) ++at_;
}

bool RawJson::Scan::ReadString() {
  const std::size_t begin = Offset();
  FindStringEnd();
  if (at_ == end_) return false;
  if (*at_ != '"') return ReadEscapes(begin);
  Add(Kind::kString, begin, Offset());
  ++at_;
  return true;
}

/// What a string stands for is no longer than what is written: it takes its place.
bool RawJson::Scan::ReadEscapes(std::size_t begin) {
  char* out = at_;
  while (true) {
    const char* const from = at_;
    FindStringEnd();
    if (at_ == end_) return false;
    const auto size = static_cast<std::size_t>(at_ - from);
    std::memmove(out, from, size);
    out += size;
    if (Skip('"')) break;
    if (!Skip('\\') || at_ == end_) return false;
    *out = Unescaped(*at_++);
    if (*out++ == 0) return false;
  }
  Add(Kind::kString, begin, static_cast<std::size_t>(out - text_));
  return true;
}

bool RawJson::Scan::ReadNumber() {
  const std::size_t begin = Offset();
  Skip('-');
  if (!Skip('0') && !SkipDigits()) return false;
  if (Skip('.') && !SkipDigits()) return false;
  if (Skip('e') || Skip('E')) {
    if (!Skip('+')) Skip('-');
    if (!SkipDigits()) return false;
  }
  Add(Kind::kNumber, begin, Offset());
  return true;
}

bool RawJson::Scan::ReadWord(Kind kind, const char* word, std::size_t size) {
  if (static_cast<std::size_t>(end_ - at_) < size || std::memcmp(at_, word, size) != 0) {
    return false;
  }
  Add(kind, Offset(), Offset());
  at_ += size;
  return true;
}

bool RawJson::Scan::Begin(Kind kind) {
  if (document_.open_.size() == kMaxDepth) return false;
  document_.open_.push_back(document_.nodes_.size());
  document_.nodes_.push_back({kind, 0, 0});
  return true;
}

bool RawJson::Scan::ReadName() {
  SkipSpace();
  if (!Skip('"') || !ReadString()) return false;
  SkipSpace();
  return Skip(':');
}

/// Behind a value: ends containers, up to where the next value begins or nothing is open.
bool RawJson::Scan::EndOrNext(bool& isValueDue) {
  std::vector<std::size_t>& open = document_.open_;
  while (!open.empty()) {
    Node& container = document_.nodes_[open.back()];
    const bool isObject = container.kind == Kind::kObject;
    ++container.size;
    SkipSpace();
    if (Skip(',')) {
      isValueDue = true;
      return !isObject || ReadName();
    }
    if (!Skip(isObject ? '}' : ']')) return false;
    container.position = document_.nodes_.size();
    open.pop_back();
  }
  return true;
}

/// A scalar, an empty container, or the begin of one up to its first value.
bool RawJson::Scan::ReadValue() {
  while (true) {
    SkipSpace();
    if (at_ == end_) return false;
    switch (*at_) {
      case '"':
        ++at_;
        return ReadString();
      case 't':
        return ReadWord(Kind::kTrue, "true", 4);
      case 'f':
        return ReadWord(Kind::kFalse, "false", 5);
      case 'n':
        return ReadWord(Kind::kNull, "null", 4);
      case '{':
      case '[':
        break;
      default:
        return ReadNumber();
    }
    const bool isObject = *at_++ == '{';
    if (!Begin(isObject ? Kind::kObject : Kind::kArray)) return false;
    SkipSpace();
    if (Skip(isObject ? '}' : ']')) {
      document_.nodes_.back().position = document_.nodes_.size();
      document_.open_.pop_back();
      return true;
    }
    if (isObject && !ReadName()) return false;
  }
}

bool RawJson::Scan::Read() {
  for (bool isValueDue = true; isValueDue;) {
    isValueDue = false;
    if (!ReadValue() || !EndOrNext(isValueDue)) return false;
  }
  SkipSpace();
  return at_ == end_;
}

}  // namespace keelstone
