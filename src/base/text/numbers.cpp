#include "base/text/numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <type_traits>

namespace keelstone {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo53 = 9007199254740992.0;

bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

bool IsHexDigit(char c) noexcept {
  return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// What C's isspace takes for white space in its own locale.
bool IsSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Drops white space and one sign from the start; true when the sign is a minus.
bool TakeSign(std::string_view& text) noexcept {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  if (text.empty() || (text.front() != '-' && text.front() != '+')) return false;
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  return negative;
}

/// The exponent written in `text` ("e+12"), kept within what can be added up safely.
std::int64_t WrittenExponent(std::string_view text) noexcept {
  constexpr std::int64_t kBound = std::int64_t{1} << 62;
  if (text.empty()) return 0;
  text.remove_prefix(1);
  const std::int64_t value = AtollSaturated(text);
  return std::clamp(value, -kBound, kBound);
}

/// Whether a number that no double holds is too large (and not too small). `text` is the
/// unsigned number; each of its digits is worth `stepsPerDigit` steps of the exponent.
bool IsTooLarge(std::string_view text, const char* exponentLetters, std::int64_t stepsPerDigit) {
  const std::size_t letter = text.find_first_of(exponentLetters);
  const std::string_view digits = text.substr(0, letter);
  const std::size_t point = std::min(digits.find('.'), digits.size());
  const std::size_t first = std::min(digits.find_first_not_of("0."), digits.size());
  const std::int64_t place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  const std::string_view exponent =
      letter == std::string_view::npos ? std::string_view() : text.substr(letter);
  return place * stepsPerDigit + WrittenExponent(exponent) > 0;
}

/// How many characters at the start of `text` a hexadecimal number takes (after its
/// "0x"); 0 when there is none.
std::size_t HexLength(std::string_view text) noexcept {
  std::size_t at = 0;
  std::size_t points = 0;
  while (at < text.size() && (IsHexDigit(text[at]) || (text[at] == '.' && points == 0))) {
    points += text[at++] == '.' ? 1 : 0;
  }
  if (at == points) return 0;
  std::size_t exponent = at;
  if (exponent == text.size() || (text[exponent] != 'p' && text[exponent] != 'P')) return at;
  ++exponent;
  if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
  const std::size_t digits = exponent;
  while (exponent < text.size() && IsDigit(text[exponent])) ++exponent;
  return exponent > digits ? exponent : at;
}

/// Reads the number at the start of `text`, where a digit or point stands; too small a
/// number gives 0.
std::optional<double> ReadMagnitude(std::string_view text, std::chars_format format) noexcept {
  double value = 0.0;
  const auto [end, failure] =
      std::from_chars(text.data(), text.data() + text.size(), value, format);
  if (failure == std::errc::invalid_argument) return std::nullopt;
  if (failure == std::errc::result_out_of_range) {
    const std::string_view number = text.substr(0, static_cast<std::size_t>(end - text.data()));
    const bool hex = format == std::chars_format::hex;
    if (IsTooLarge(number, hex ? "pP" : "eE", hex ? 4 : 1)) return std::nullopt;
    return 0.0;
  }
  return value;
}

}  // namespace

std::optional<std::int64_t> LeadingInt64(std::string_view text) noexcept {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  const bool negative = TakeSign(text);
  if (text.empty() || !IsDigit(text.front())) return std::nullopt;
  std::uint64_t magnitude = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (result.ec != std::errc() || magnitude > kLargest) {
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  const auto value = static_cast<std::int64_t>(magnitude);
  return negative ? -value : value;
}

std::optional<double> LeadingDouble(std::string_view text) noexcept {
  const bool negative = TakeSign(text);
  // from_chars would take another sign, "inf" and "nan" here.
  if (text.empty() || (text.front() != '.' && !IsDigit(text.front()))) return std::nullopt;
  std::size_t hexLength = 0;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    hexLength = HexLength(text.substr(2));
  }
  // Cut to length, because from_chars takes "1p+-2" for one hexadecimal number.
  const auto magnitude = hexLength > 0
                             ? ReadMagnitude(text.substr(2, hexLength), std::chars_format::hex)
                             : ReadMagnitude(text, std::chars_format::general);
  return magnitude && negative ? -*magnitude : magnitude;
}

std::int64_t AtollSaturated(std::string_view text) noexcept {
  return LeadingInt64(text).value_or(0);
}

std::int32_t AtoiLow32(std::string_view text) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(AtollSaturated(text)));
}

double AtofFinite(std::string_view text) noexcept { return LeadingDouble(text).value_or(0.0); }

char* WriteNumber(char* to, std::int64_t value) noexcept {
  return std::to_chars(to, to + kNumberRoom, value).ptr;
}

char* WriteNumber(char* to, std::uint64_t value) noexcept {
  return std::to_chars(to, to + kNumberRoom, value).ptr;
}

namespace {

/// Decimals with fewer digits than this all read as different values, as long as they have
/// no more than five decimals.
template <class Real>
constexpr double kShortDigits = std::is_same_v<Real, float> ? 1e7 : 1e15;

/// Writes a value that is a decimal with few digits, as most that devices tell; nullptr for
/// others.
///
/// Whole numbers below 2^53 and these powers of ten are doubles, so that their quotient is
/// the double which the decimal reads as. No two decimals of so few digits read as the same
/// value: the one that is found is the shortest text there is.
template <class Real>
char* WriteShortDecimal(char* to, Real value) noexcept {
  constexpr double kPowers[] = {10, 100, 1'000, 10'000, 100'000};
  const Real size = std::fabs(value);
  if (!(size >= Real(1e-4))) return nullptr;
  for (const double power : kPowers) {
    const double scaled = static_cast<double>(size) * power;
    if (!(scaled < kShortDigits<Real>)) return nullptr;
    const auto digits = static_cast<std::uint64_t>(scaled + 0.5);
    if (static_cast<Real>(static_cast<double>(digits) / power) != size) continue;
    const auto unit = static_cast<std::uint64_t>(power);
    if (value < 0) *to++ = '-';
    // A one before the decimals keeps their zeros, and gives its place to the point.
    char* const point = std::to_chars(to, to + 16, digits / unit).ptr;
    char* const end = std::to_chars(point, point + 8, unit + digits % unit).ptr;
    *point = '.';
    return end;
  }
  return nullptr;
}

}  // namespace

char* WriteNumber(char* to, double value) noexcept {
  if (!std::isfinite(value)) return std::copy_n("null", 4, to);
  if (char* const end = WriteShortDecimal(to, value); end != nullptr) return end;
  const double size = std::fabs(value);
  char* const room = to + kNumberRoom - 2;
  if (size < kTwoTo53 && size == std::trunc(size) && !std::signbit(value)) {
    return std::copy_n(".0", 2, std::to_chars(to, room, static_cast<std::int64_t>(value)).ptr);
  }
  if (size == 0.0 || (size >= 1e-4 && size < 1e16)) {
    char* const end = std::to_chars(to, room, value, std::chars_format::fixed).ptr;
    return size == std::trunc(size) ? std::copy_n(".0", 2, end) : end;
  }
  return std::to_chars(to, room, value, std::chars_format::scientific).ptr;
}

char* WriteNumber(char* to, float value) noexcept {
  constexpr float kTwoTo24 = 16777216.0F;  // below it whole numbers have texts of their own
  if (char* const end = WriteShortDecimal(to, value); end != nullptr) return end;
  const float size = std::fabs(value);
  if (size >= 1e-4F && size < kTwoTo24 && size != std::trunc(size)) {
    return std::to_chars(to, to + kNumberRoom, value, std::chars_format::fixed).ptr;
  }
  return WriteNumber(to, AsWritten(value));
}

namespace {

template <class Number>
void Append(std::string& text, Number value) {
  char buffer[kNumberRoom];
  text.append(buffer, WriteNumber(buffer, value));
}

}  // namespace

void AppendNumber(std::string& text, std::int64_t value) { Append(text, value); }

void AppendNumber(std::string& text, std::uint64_t value) { Append(text, value); }

void AppendNumber(std::string& text, double value) { Append(text, value); }

void AppendNumber(std::string& text, float value) { Append(text, value); }

std::int64_t SaturateToInt64(double value) noexcept {
  if (std::isnan(value)) return 0;
  if (value >= kTwoTo63) return std::numeric_limits<std::int64_t>::max();
  if (value < -kTwoTo63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

std::int32_t SaturateToInt32(std::int64_t value) noexcept {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

float NarrowToFloat(double value) noexcept {
  // The largest double that rounds to the largest float; halfway and beyond is infinity.
  constexpr double kHalfBeyond = 0x1.ffffffp127;
  if (std::fabs(value) >= kHalfBeyond) {
    return std::copysign(std::numeric_limits<float>::infinity(),
                         static_cast<float>(value > 0 ? 1 : -1));
  }
  return static_cast<float>(value);
}

double AsWritten(float value) noexcept {
  const auto wide = static_cast<double>(value);
  if (!std::isfinite(value)) return wide;
  char text[kNumberRoom];
  // Plain notation would show all digits of large values.
  const auto end =
      std::to_chars(text, text + kNumberRoom, value, std::chars_format::scientific).ptr;
  double number = wide;
  std::from_chars(text, end, number);
  return number;
}

}  // namespace keelstone
