#include "model/history/element_shape.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/text/numbers.h"
#include "model/history/history_layout.h"

namespace keelstone {

namespace {

/// What may stand at each place, while a shape is made: its own character, to begin with.
struct Places {
  char* least;
  unsigned char* range;

  void Allow(std::size_t at, char from, char to) const {
    least[at] = from;
    range[at] = static_cast<unsigned char>(to - from);
  }
  void AllowDigits(std::size_t from, std::size_t to) const {
    for (std::size_t at = from; at < to; ++at) Allow(at, '0', '9');
  }
};

bool IsBetween(char c, char from, char to) { return c >= from && c <= to; }
bool IsDigit(char c) { return IsBetween(c, '0', '9'); }

std::size_t EndOfDigits(std::string_view text, std::size_t at) {
  while (at < text.size() && IsDigit(text[at])) ++at;
  return at;
}

/// An integer whose digits stand from `at` to `end`.
void AllowInteger(std::size_t at, std::size_t end, bool isNegative, const Places& places) {
  places.AllowDigits(at, end);
  // No zero in front, and none that is negative.
  if (isNegative || end - at > 1) places.Allow(at, '1', '9');
}

/// A real whose digits stand from `at` to `point` and from `decimals` to `end`. False for
/// one with so many digits that they alone do not tell whether the library writes it so:
/// up to `mostDigits` each decimal is the text of its own value.
bool AllowReal(std::string_view text, std::size_t at, std::size_t point, std::size_t end,
               std::size_t mostDigits, const Places& places) {
  const std::size_t decimals = point + 1;
  if (text[point] != '.' || text[end] != '}' || end - at > mostDigits + 1) return false;
  places.AllowDigits(decimals, end);
  if (end - decimals > 1) places.Allow(end - 1, '1', '9');
  if (text[at] != '0') {
    places.AllowDigits(at, point);
    places.Allow(at, '1', '9');
  } else if (end - decimals > 1) {
    places.Allow(decimals, '1', '9');  // 0.1 and above
  }
  return true;
}

/// IsFloatText for a million and above with one decimal. The floats between two powers of two
/// lie so far apart there that each whole number is followed by the same decimals.
bool IsFloatWithOneDecimal(std::uint64_t whole, int decimal) {
  // A bit for each decimal, by the bits of the whole number; steps of 1/16, 1/8, 1/4, 1/2, 1.
  constexpr std::array<unsigned, 5> kDecimals = {0x3FF, 0x377, 0x125, 0x021, 0x001};
  constexpr unsigned kFirst = 20;
  const auto row = static_cast<unsigned>(std::bit_width(whole)) - kFirst;
  return row < kDecimals.size() && (kDecimals[row] >> static_cast<unsigned>(decimal) & 1U) != 0;
}

/// A text from `at` to `end`: digits and letters in place of such as they are. None of them
/// needs an escape.
void AllowText(std::string_view text, std::size_t at, std::size_t end, const Places& places) {
  for (; at < end; ++at) {
    const char c = text[at];
    if (IsDigit(c)) places.Allow(at, '0', '9');
    if (IsBetween(c, 'a', 'z')) places.Allow(at, 'a', 'z');
    if (IsBetween(c, 'A', 'Z')) places.Allow(at, 'A', 'Z');
  }
}

}  // namespace

void ElementShape::Take(EnumKSDataType dataType, std::string_view text) {
  blocks_ = 0;
  isJudged_ = false;
  if (dataType == KSDataTable) return;
  if (text.size() > kMostBytes || text.size() < sizeof(Bytes)) return;
  std::array<char, kMostBytes> least{};
  std::array<unsigned char, kMostBytes> range{};
  std::copy(text.begin(), text.end(), least.begin());
  const Places places{least.data(), range.data()};

  isTimeNegative_ = text[kTimeAt] == '-';
  const std::size_t time = kTimeAt + (isTimeNegative_ ? 1 : 0);
  const std::size_t timeEnd = EndOfDigits(text, time);
  AllowInteger(time, timeEnd, isTimeNegative_, places);
  timeDigits_ = timeEnd - time;
  valueAt_ = timeEnd + kHistoryValueKey.size();
  isNegative_ = text[valueAt_] == '-';
  const std::size_t whole = valueAt_ + (isNegative_ ? 1 : 0);
  const std::size_t wholeEnd = EndOfDigits(text, whole);
  wholeDigits_ = wholeEnd - whole;
  if (dataType == KSDataInt64) {
    AllowInteger(whole, wholeEnd, isNegative_, places);
  } else if (dataType == KSDataDouble || dataType == KSDataFloat) {
    const std::size_t end = EndOfDigits(text, wholeEnd + 1);
    decimals_ = end - wholeEnd - 1;
    const bool isDouble = dataType == KSDataDouble;
    if (!AllowReal(text, whole, wholeEnd, end, isDouble ? 15 : kFloatDigits, places)) return;
    isJudged_ = !isDouble && wholeDigits_ + decimals_ > kShortFloatDigits;
  } else {
    AllowText(text, valueAt_, text.size(), places);
  }
  size_ = text.size();
  blocks_ = (size_ + sizeof(Bytes) - 1) / sizeof(Bytes);
  for (std::size_t i = 0; i < blocks_; ++i) {
    // The last one ends with the shape, and so overlaps the one before it.
    const std::size_t at = std::min(i * sizeof(Bytes), size_ - sizeof(Bytes));
    std::memcpy(&least_[i], least.data() + at, sizeof(Bytes));
    std::memcpy(&range_[i], range.data() + at, sizeof(Bytes));
  }
}

void ElementShape::Read(const char* element, KSDataPoint<double>& point) const {
  point.time = ReadInteger(element + kTimeAt, timeDigits_, isTimeNegative_);
  const char* const whole = element + valueAt_ + (isNegative_ ? 1 : 0);
  const double value =
      ValueOfDecimal(ReadKnownDigits(whole, wholeDigits_),
                     ReadKnownDigits(whole + wholeDigits_ + 1, decimals_), decimals_);
  point.value = isNegative_ ? -value : value;
}

void ElementShape::Read(const char* element, KSDataPoint<float>& point) const {
  KSDataPoint<double> wide;
  Read(element, wide);
  point = KSDataPoint<float>(wide.time, NarrowToFloat(wide.value));
}

template <std::size_t kBlocks>
const char* ElementShape::PassBlocks(const char* next, const char* end) const {
  // Copied, so that they stay in registers.
  std::array<Bytes, kBlocks> least;
  std::array<Bytes, kBlocks> range;
  std::copy_n(least_.begin(), kBlocks, least.begin());
  std::copy_n(range_.begin(), kBlocks, range.begin());
  const std::size_t lastAt = size_ - sizeof(Bytes);
  // Digits are read eight at a time, beyond the element.
  const std::size_t needed = size_ + sizeof(std::uint64_t);
  for (; static_cast<std::size_t>(end - next) >= needed; next += size_) {
    Bytes outside{};
    for (std::size_t i = 0; i < kBlocks; ++i) {
      Bytes block;
      std::memcpy(&block, next + (i + 1 < kBlocks ? i * sizeof(Bytes) : lastAt), sizeof block);
      outside |= reinterpret_cast<Bytes>(block - least[i] > range[i]);
    }
    std::array<std::uint64_t, 2> halves{};
    static_assert(sizeof halves == sizeof outside);
    std::memcpy(halves.data(), &outside, sizeof outside);
    if ((halves[0] | halves[1]) != 0) break;
  }
  return next;
}

const char* ElementShape::Pass(const char* next, const char* end) const {
  const char* const alike = PassAlike(next, end);
  return isJudged_ ? PassFloats(next, alike) : alike;
}

/// Where the floats from `next` on, all of this shape, are no longer the library's own texts;
/// `end` when all are. The digits before the point are eight at most.
const char* ElementShape::PassFloats(const char* next, const char* end) const {
  const auto power = static_cast<double>(kPowersOfTen[decimals_]);
  const double inverse = 1 / power;
  const std::size_t wholeAt = valueAt_ + (isNegative_ ? 1 : 0);
  const std::size_t pointAt = wholeAt + wholeDigits_;
  const std::size_t shift = 64 - 8 * wholeDigits_;
  for (; next != end; next += size_) {
    const std::uint64_t digits = (EightCharacters(next + wholeAt) - kEightZeros) << shift;
    const std::uint64_t whole = ValueOfEightDigits(digits);
    const int last = next[pointAt + decimals_] - '0';
    if (decimals_ == 1) {
      if (!IsFloatWithOneDecimal(whole, last)) break;
      continue;
    }
    const std::uint64_t decimals = ReadKnownDigits(next + pointAt + 1, decimals_);
    const auto number = static_cast<double>(whole * kPowersOfTen[decimals_] + decimals);
    if (!IsFloatText(number, static_cast<double>(last), power, inverse)) break;
  }
  return next;
}

const char* ElementShape::PassAlike(const char* next, const char* end) const {
  switch (blocks_) {
    case 2:
      return PassBlocks<2>(next, end);
    case 3:
      return PassBlocks<3>(next, end);
    case 4:
      return PassBlocks<4>(next, end);
    case 5:
      return PassBlocks<5>(next, end);
    default:
      return next;
  }
}

}  // namespace keelstone
