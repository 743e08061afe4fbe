#ifndef KEELSTONE_BASE_TEXT_NUMBERS_H
#define KEELSTONE_BASE_TEXT_NUMBERS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Conversions between texts and numbers, none of which depends on the locale, and
/// narrowing conversions that say what comes out when a value does not fit.
namespace keelstone {

/// The whole number at the start of `text` (white space, sign, decimal digits, then
/// anything), as C's atoll; beyond 64 bits it saturates. Nothing when there are no
/// digits.
std::optional<std::int64_t> LeadingInt64(std::string_view text) noexcept;
/// The finite real at the start of `text` (white space, sign, decimal or hexadecimal),
/// as C's atof. Nothing when there is no number or it is not finite.
std::optional<double> LeadingDouble(std::string_view text) noexcept;

/// LeadingInt64, or 0.
std::int64_t AtollSaturated(std::string_view text) noexcept;
/// AtollSaturated, then the low 32 bits.
std::int32_t AtoiLow32(std::string_view text) noexcept;
/// LeadingDouble, or 0.
double AtofFinite(std::string_view text) noexcept;

/// Appends the decimal text of an integer.
void AppendNumber(std::string& text, std::int64_t value);
void AppendNumber(std::string& text, std::uint64_t value);
/// Appends a real as JSON writes it: the fewest digits that read back the same, plainly
/// from 0.0001 up to below 1e16 and with at least one decimal, else with an exponent of
/// at least two digits; "null" for NaN and the infinities.
void AppendNumber(std::string& text, double value);
/// Appends a float likewise, with the fewest digits that read back to the same float: what
/// AppendNumber writes of AsWritten(value).
void AppendNumber(std::string& text, float value);

/// What the text of a number needs at most, in bytes.
inline constexpr std::size_t kNumberRoom = 40;
/// Write the same texts at `to`, where kNumberRoom bytes are free; the end of the text.
char* WriteNumber(char* to, std::int64_t value) noexcept;
char* WriteNumber(char* to, std::uint64_t value) noexcept;
char* WriteNumber(char* to, double value) noexcept;
char* WriteNumber(char* to, float value) noexcept;

/// To 64 bits, cut towards zero: beyond the range the nearest bound, NaN gives 0.
std::int64_t SaturateToInt64(double value) noexcept;
/// To 32 bits: beyond the range the nearest bound.
std::int32_t SaturateToInt32(std::int64_t value) noexcept;
/// To single precision, rounded to nearest; beyond its range an infinity.
float NarrowToFloat(double value) noexcept;
/// The double that the text of a float reads as: 0.1 for 0.1F, where widening would give
/// 0.10000000149011612. It narrows to the same float.
double AsWritten(float value) noexcept;
/// a - b in 64-bit two's complement: wraps instead of overflowing.
constexpr std::int64_t WrappingDifference(std::int64_t a, std::int64_t b) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_NUMBERS_H
