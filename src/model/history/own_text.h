#ifndef KEELSTONE_MODEL_HISTORY_OWN_TEXT_H
#define KEELSTONE_MODEL_HISTORY_OWN_TEXT_H

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace keelstone {

inline constexpr std::uint64_t kEightZeros = 0x3030303030303030U;
inline constexpr std::array<std::uint64_t, 9> kPowersOfTen = {
    1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000};

/// The first character in the lowest byte.
inline std::uint64_t EightCharacters(const char* text) {
  std::uint64_t word = 0;
  std::memcpy(&word, text, sizeof word);
  return std::endian::native == std::endian::big ? __builtin_bswap64(word) : word;
}

/// The number of eight digits, each a byte, the first one the lowest: two and then four of
/// them are taken together.
inline std::uint64_t ValueOfEightDigits(std::uint64_t word) {
  word = (word * 10 + (word >> 8U)) & 0x00FF00FF00FF00FFU;
  word = (word * 100 + (word >> 16U)) & 0x0000FFFF0000FFFFU;
  return (word * 10'000 + (word >> 32U)) & 0xFFFFFFFFU;
}

/// The number that `count` digits at `text` make, 1 to 18, where it is known that they
/// are digits and that eight characters can be read from each of them on.
inline std::uint64_t ReadKnownDigits(const char* text, std::size_t count) {
  std::uint64_t number = 0;
  for (; count > 8; count -= 8, text += 8) {
    number = number * 100'000'000U + ValueOfEightDigits(EightCharacters(text) - kEightZeros);
  }
  // Zeros in front in place of what stands behind.
  const std::uint64_t last = (EightCharacters(text) - kEightZeros) << (64 - 8 * count);
  return number * kPowersOfTen[count] + ValueOfEightDigits(last);
}

// From a thousandth on, every decimal of up to 7 digits is the text of its own float. No
// float needs more than 9.
inline constexpr std::size_t kShortFloatDigits = 7;
inline constexpr std::size_t kFloatDigits = 9;

/// Whether a decimal of 8 or 9 digits is how a float is written: the nearest decimal of its
/// length, where no shorter one reads as it. `number` has its digits, and is the decimal times
/// `power`, a power of ten whose inverse is `inverse`; `last` is the last digit. False when
/// that is too close to tell. Without branches: last digits are as good as random.
inline bool IsFloatText(double number, double last, double power, double inverse) {
  const auto value = static_cast<float>(number * inverse);
  const auto bits = std::bit_cast<std::uint32_t>(value);
  // All in units of the last digit. The product of 24 bits and a power of five is exact.
  const auto wide = static_cast<double>(value);
  const double off = wide * power - number;
  const double size = std::fabs(off);
  // How far from the value a text reads as it; below a power of two it is half as far.
  const double reach = (static_cast<double>(std::bit_cast<float>(bits + 1)) - wide) * 0.5 * power;
  const bool isRead = (size < 0.99 * reach) & ((bits & 0x7FFFFFU) != 0);
  const bool isEven = (static_cast<unsigned>(last) & 1U) == 0;
  const bool isNearest = (size < 0.5) | ((size == 0.5) & isEven);
  const bool isShortest = (last + off > 1.01 * reach) & (10 - last - off > 1.01 * reach);
  // Behind the point of a whole number stands a zero that does not count.
  const bool isWhole = (power == 10) & (last == 0) & (number < 167'772'160.0) & (off == 0);
  return ((isRead & isNearest & isShortest) | isWhole) != 0;
}

/// The double nearest to whole + decimals / 10^count, for at most 15 digits in all.
double ValueOfDecimal(std::uint64_t whole, std::uint64_t decimals, std::size_t count);

/// Reads a text from its front as far as it is what the library itself writes, to the
/// last digit. Everything else it refuses, and the JSON reader judges instead: so what was
/// read here can be kept as it stands. The texts of histories and parameters are long
/// runs of numbers, which is why digits are read eight at a time.
class OwnTextReader {
 public:
  explicit OwnTextReader(std::string_view text) : next_(text.data()), end_(next_ + text.size()) {}

  const char* position() const { return next_; }
  bool AtEnd() const { return next_ == end_; }
  /// Goes on from `position`, a place further on in the text.
  void JumpTo(const char* position) { next_ = position; }

  bool Skip(std::string_view literal) {
    if (static_cast<std::size_t>(end_ - next_) < literal.size()) return false;
    if (std::memcmp(next_, literal.data(), literal.size()) != 0) return false;
    next_ += literal.size();
    return true;
  }
  bool Skip(char c) {
    if (next_ == end_ || *next_ != c) return false;
    ++next_;
    return true;
  }

  /// An integer of at most 18 digits.
  bool Read(std::int64_t& value) {
    const char* const before = next_;
    const bool negative = Skip('-');
    std::uint64_t number = 0;
    const std::ptrdiff_t count = ReadDigits(number);
    const bool isPlain = count > 0 && count <= kMostDigits && !(number == 0 && negative);
    if (!isPlain || HasLeadingZero(next_ - count, count)) {
      next_ = before;
      return false;
    }
    const auto magnitude = static_cast<std::int64_t>(number);
    value = negative ? -magnitude : magnitude;
    return true;
  }
  bool Read(double& value);
  bool Read(float& value);
  // Skip what Read of an int64 or of a double would take.
  bool SkipInteger() {
    std::int64_t value = 0;
    return Read(value);
  }
  bool SkipReal();
  /// A string without escapes; the view is into the text.
  bool Read(std::string_view& value);
  bool Read(bool& value);

 private:
  // So many digits always fit into 64 bits, with a sign too.
  static constexpr std::ptrdiff_t kMostDigits = 18;

  /// A real in plain notation: `digits` divided by 10 to the power of `decimals`.
  struct Decimal {
    bool negative = false;
    std::uint64_t digits = 0;
    std::ptrdiff_t decimals = 0;
  };

  static bool HasLeadingZero(const char* digits, std::ptrdiff_t count) {
    return count > 1 && *digits == '0';
  }

  /// Appends the digits that follow to `number`, which wraps beyond kMostDigits; how many.
  std::ptrdiff_t ReadDigits(std::uint64_t& number) {
    const char* at = next_;
    SkipDigits();
    const std::ptrdiff_t count = next_ - at;
    auto left = static_cast<std::size_t>(count);
    // Digits are read eight at a time, beyond the last of them.
    if (end_ - next_ >= 8) {
      while (left > 0) {
        const std::size_t some = std::min<std::size_t>(left, 8);
        number = number * kPowersOfTen[some] + ReadKnownDigits(at, some);
        at += some;
        left -= some;
      }
      return count;
    }
    for (; left > 0; --left) {
      number = number * 10 + static_cast<std::uint64_t>(*at++ - '0');
    }
    return count;
  }

  void SkipDigits() {
    while (end_ - next_ >= 8) {
      // The first of eight that is no digit has the highest bit set of a byte here; what
      // carries beyond it does not matter.
      const std::uint64_t word = EightCharacters(next_) ^ kEightZeros;
      const std::uint64_t others = ((word + 0x7676767676767676U) | word) & 0x8080808080808080U;
      next_ += others == 0 ? 8 : std::countr_zero(others) / 8;
      if (others != 0) return;
    }
    while (next_ != end_ && *next_ >= '0' && *next_ <= '9') ++next_;
  }

  bool ReadDecimal(Decimal& decimal);
  template <class Real>
  bool ReadAnyReal(Real& value);

  const char* next_;
  const char* end_;
};

/// Whether a string needs no escapes between quotes.
bool StandsAsItIs(std::string_view value);

/// Appends a string as JSON, as JsonValue writes it.
void AppendString(std::string& text, std::string_view value);

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_OWN_TEXT_H
