#include "model/history_layout.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "platform/numbers.h"

namespace keelstone {

namespace {

constexpr std::string_view kHeadKey = "{\"dataType\":";
constexpr std::string_view kListKey = ",\"dataList\":[";
constexpr std::string_view kTail = "]}";

// Longer integers are left to the JSON reader, which knows where 64 bits end.
constexpr int kMostDigits = 18;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool HistoryLayout::Skip(std::string_view literal) {
  if (static_cast<std::size_t>(end_ - next_) < literal.size()) return false;
  if (std::memcmp(next_, literal.data(), literal.size()) != 0) return false;
  next_ += literal.size();
  return true;
}

bool HistoryLayout::Skip(char c) {
  if (next_ == end_ || *next_ != c) return false;
  ++next_;
  return true;
}

bool HistoryLayout::SkipHead(EnumKSDataType dataType) {
  std::int64_t type = 0;
  return Skip(kHeadKey) && Read(type) && type == dataType && Skip(kListKey);
}

bool HistoryLayout::SkipTail() { return Skip(kTail) && AtEnd(); }

bool HistoryLayout::Read(std::int64_t& value) {
  const char* digit = next_;
  const bool negative = digit != end_ && *digit == '-';
  if (negative) ++digit;
  const char* const first = digit;
  std::int64_t number = 0;
  while (digit != end_ && IsDigit(*digit) && digit - first < kMostDigits) {
    number = number * 10 + (*digit++ - '0');
  }
  if (digit == first || (digit != end_ && IsDigit(*digit))) return false;
  if (*first == '0' && (digit - first > 1 || negative)) return false;
  value = negative ? -number : number;
  next_ = digit;
  return true;
}

bool HistoryLayout::Read(double& value) {
  const char* const after = EndOfReal();
  if (after == nullptr) return false;
  const std::from_chars_result read = std::from_chars(next_, after, value);
  if (read.ec != std::errc() || read.ptr != after) return false;
  if (!IsOwnWriting({next_, static_cast<std::size_t>(after - next_)}, value)) return false;
  next_ = after;
  return true;
}

bool HistoryLayout::IsOwnWriting(std::string_view text, double value) {
  // Decimals of up to 15 digits all have doubles of their own: the shortest text of the
  // double is the decimal itself, and only the notation can differ.
  const bool isPlain = value == 0.0 || (std::fabs(value) >= 1e-4 && std::fabs(value) < 1e15);
  const std::size_t point = text.find('.');
  if (isPlain && text.size() <= 16 && point != std::string_view::npos) {
    const bool hasExponent = text.find_first_of("eE") != std::string_view::npos;
    return !hasExponent && (text.back() != '0' || point + 2 == text.size());
  }
  written_.clear();
  AppendNumber(written_, value);
  return written_ == text;
}

bool HistoryLayout::Read(float& value) {
  double wide = 0.0;
  const char* const before = next_;
  if (!Read(wide)) return false;
  value = NarrowToFloat(wide);
  // What is no float is written otherwise than it was read.
  if (static_cast<double>(value) == wide) return true;
  next_ = before;
  return false;
}

bool HistoryLayout::Read(std::string_view& value) {
  if (next_ == end_ || *next_ != '"') return false;
  const char* const first = next_ + 1;
  const auto* const quote =
      static_cast<const char*>(std::memchr(first, '"', static_cast<std::size_t>(end_ - first)));
  if (quote == nullptr) return false;
  // Without a branch, and in bytes, compilers do many at a time.
  unsigned char found = 0;
  for (const char* c = first; c != quote; ++c) {
    const auto byte = static_cast<unsigned char>(*c);
    found = static_cast<unsigned char>(found | (byte < 0x20U) | (byte == '\\'));
  }
  if (found != 0) return false;
  value = std::string_view(first, static_cast<std::size_t>(quote - first));
  next_ = quote + 1;
  return true;
}

bool HistoryLayout::Read(bool& value) {
  if (Skip("true")) {
    value = true;
    return true;
  }
  value = false;
  return Skip("false");
}

const char* HistoryLayout::SkipDigits(const char* c) const {
  while (c != end_ && IsDigit(*c)) ++c;
  return c;
}

const char* HistoryLayout::EndOfReal() const {
  const char* c = next_;
  if (c != end_ && *c == '-') ++c;
  const char* const whole = c;
  c = SkipDigits(c);
  if (c == whole || (*whole == '0' && c - whole > 1) || c == end_) return nullptr;
  const char* const fraction = c;
  if (*c == '.') {
    const char* const first = ++c;
    c = SkipDigits(c);
    if (c == first) return nullptr;
  }
  if (c != end_ && (*c == 'e' || *c == 'E')) {
    ++c;
    if (c != end_ && (*c == '+' || *c == '-')) ++c;
    const char* const first = c;
    c = SkipDigits(c);
    if (c == first) return nullptr;
  }
  return c == fraction ? nullptr : c;
}

std::string HistoryText(EnumKSDataType dataType, std::string_view list) {
  constexpr std::size_t kTypeDigits = 11;
  std::string text;
  text.reserve(kHeadKey.size() + kTypeDigits + kListKey.size() + list.size() + kTail.size());
  text += kHeadKey;
  AppendNumber(text, static_cast<std::int64_t>(dataType));
  text += kListKey;
  text += list;
  text += kTail;
  return text;
}

}  // namespace keelstone
