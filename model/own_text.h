#ifndef KEELSTONE_MODEL_OWN_TEXT_H
#define KEELSTONE_MODEL_OWN_TEXT_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace keelstone {

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
    const char* const first = next_;
    while (end_ - next_ >= 8 && AppendEightDigits(next_, number)) next_ += 8;
    for (; next_ != end_; ++next_) {
      const unsigned digit = static_cast<unsigned char>(*next_) - unsigned{'0'};
      if (digit > 9) break;
      number = number * 10 + digit;
    }
    return next_ - first;
  }

  /// Takes eight digits at once, two and then four of them together in one word; false
  /// when one of the eight characters is no digit.
  static bool AppendEightDigits(const char* digits, std::uint64_t& number) {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t word = 0;  // the first digit in its lowest byte
    std::memcpy(&word, digits, sizeof word);
    // The upper half of every byte is that of '0', and still so with six added.
    constexpr std::uint64_t kUpper = 0xF0F0F0F0F0F0F0F0U;
    constexpr std::uint64_t kZeros = 0x3030303030303030U;
    if ((word & kUpper) != kZeros) return false;
    if (((word + 0x0606060606060606U) & kUpper) != kZeros) return false;
    word -= kZeros;
    word = (word * 10 + (word >> 8U)) & 0x00FF00FF00FF00FFU;
    word = (word * 100 + (word >> 16U)) & 0x0000FFFF0000FFFFU;
    word = (word * 10'000 + (word >> 32U)) & 0xFFFFFFFFU;
    number = number * 100'000'000U + word;
    return true;
  }

  bool ReadDecimal(Decimal& decimal);
  bool ReadAnyReal(double& value);

  const char* next_;
  const char* end_;
};

/// Appends a string as JSON, as JsonValue writes it.
void AppendString(std::string& text, std::string_view value);

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_OWN_TEXT_H
