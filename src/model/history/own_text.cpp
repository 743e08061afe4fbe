#include "model/history/own_text.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <string>

#include "base/text/numbers.h"
#include "keelstone/json_value.h"

namespace keelstone {

namespace {

// As many as a Decimal has digits; each is exact.
constexpr double kRealPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8, 1e9,
                                       1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18};

// Decimals of up to 15 digits all have doubles of their own: the shortest text of such a
// double is the decimal itself. Dividing two numbers that a double holds exactly rounds
// once, so the quotient is the double that the decimal reads as.
constexpr std::uint64_t kShortDigits = 1'000'000'000'000'000U;
static_assert(FLT_EVAL_METHOD == 0, "a quotient must be rounded to double at once");

constexpr double kLeastPlain = 1e-4;  // what is smaller is written with an exponent

// From a thousandth on, the same is true of decimals of up to 7 digits and floats.
constexpr std::uint64_t kShortFloatDigitsEnd = 10'000'000U;
constexpr std::uint64_t kFloatDigitsEnd = 1'000'000'000U;
constexpr float kLeastShortFloat = 1e-3F;

double Narrow(double value, double* /*as*/) { return value; }
float Narrow(double value, float* /*as*/) { return NarrowToFloat(value); }

}  // namespace

bool StandsAsItIs(std::string_view value) {
  // Without a branch, and in bytes, compilers do many at a time.
  unsigned char found = 0;
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    found = static_cast<unsigned char>(found | (byte < 0x20U) | (byte == '\\') | (byte == '"'));
  }
  return found == 0;
}

bool OwnTextReader::ReadDecimal(Decimal& decimal) {
  decimal.negative = Skip('-');
  const std::ptrdiff_t count = ReadDigits(decimal.digits);
  if (count == 0 || HasLeadingZero(next_ - count, count) || !Skip('.')) return false;
  decimal.decimals = ReadDigits(decimal.digits);
  if (decimal.decimals == 0 || count + decimal.decimals > kMostDigits) return false;
  if (decimal.decimals > 1 && next_[-1] == '0') return false;
  return next_ == end_ || (*next_ != 'e' && *next_ != 'E');
}

double ValueOfDecimal(std::uint64_t whole, std::uint64_t decimals, std::size_t count) {
  const double power = kRealPowersOfTen[count];
  return static_cast<double>(whole * static_cast<std::uint64_t>(power) + decimals) / power;
}

bool OwnTextReader::SkipReal() {
  const char* const before = next_;
  Skip('-');
  const char* const whole = next_;
  SkipDigits();
  if (next_ != whole && *whole != '0' && Skip('.')) {
    const char* const decimals = next_;
    SkipDigits();
    // Each decimal with so few digits is the text of its own double.
    const bool isShort = next_ - whole <= 16;
    const bool isCut = next_ - decimals == 1 || (next_ != decimals && next_[-1] != '0');
    if (isShort && isCut && (next_ == end_ || (*next_ != 'e' && *next_ != 'E'))) return true;
  }
  next_ = before;
  double value = 0.0;
  return Read(value);
}

bool OwnTextReader::Read(double& value) {
  const char* const before = next_;
  Decimal decimal;
  if (ReadDecimal(decimal) && decimal.digits < kShortDigits) {
    const double magnitude =
        static_cast<double>(decimal.digits) / kRealPowersOfTen[decimal.decimals];
    if (decimal.digits == 0 || magnitude >= kLeastPlain) {
      value = decimal.negative ? -magnitude : magnitude;
      return true;
    }
  }
  next_ = before;
  return ReadAnyReal(value);
}

bool OwnTextReader::Read(float& value) {
  const char* const before = next_;
  Decimal decimal;
  if (ReadDecimal(decimal) && decimal.digits < kFloatDigitsEnd) {
    const double power = kRealPowersOfTen[decimal.decimals];
    const auto number = static_cast<double>(decimal.digits);
    const auto last = static_cast<double>(decimal.digits % 10);
    const auto magnitude = static_cast<float>(number / power);
    const bool isPlain = decimal.digits == 0 || magnitude >= kLeastShortFloat;
    if (isPlain &&
        (decimal.digits < kShortFloatDigitsEnd || IsFloatText(number, last, power, 1 / power))) {
      value = decimal.negative ? -magnitude : magnitude;
      return true;
    }
  }
  next_ = before;
  return ReadAnyReal(value);
}

// As the JSON reader has it: the nearest double, then the nearest float.
template <class Real>
bool OwnTextReader::ReadAnyReal(Real& value) {
  double wide = 0.0;
  const std::from_chars_result read = std::from_chars(next_, end_, wide);
  value = Narrow(wide, static_cast<Real*>(nullptr));
  if (read.ec != std::errc() || !std::isfinite(value)) return false;
  std::string written;
  AppendNumber(written, value);
  return Skip(written) && next_ == read.ptr;
}

bool OwnTextReader::Read(std::string_view& value) {
  if (next_ == end_ || *next_ != '"') return false;
  const char* const first = next_ + 1;
  const auto* const quote =
      static_cast<const char*>(std::memchr(first, '"', static_cast<std::size_t>(end_ - first)));
  if (quote == nullptr) return false;
  value = std::string_view(first, static_cast<std::size_t>(quote - first));
  if (!StandsAsItIs(value)) return false;
  next_ = quote + 1;
  return true;
}

void AppendString(std::string& text, std::string_view value) {
  if (!StandsAsItIs(value)) {
    JsonValue(value).appendTo(text);
    return;
  }
  text += '"';
  text += value;
  text += '"';
}

bool OwnTextReader::Read(bool& value) {
  value = Skip("true");
  return value || Skip("false");
}

}  // namespace keelstone
