#include "program/time_text.h"

#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

#include "keelstone/clock.h"

namespace keelstone::host {

namespace {

/// Takes pieces off the front of a text.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool atEnd() const noexcept { return rest_.empty(); }
  /// The character, when it is next.
  bool Skip(char c) {
    if (rest_.empty() || rest_[0] != c) return false;
    rest_.remove_prefix(1);
    return true;
  }
  /// Exactly `digits` decimal digits.
  bool Read(std::size_t digits, int& number) {
    if (rest_.size() < digits) return false;
    number = 0;
    for (const char c : rest_.substr(0, digits)) {
      if (c < '0' || c > '9') return false;
      number = number * 10 + (c - '0');
    }
    rest_.remove_prefix(digits);
    return true;
  }

 private:
  std::string_view rest_;
};

std::optional<std::int64_t> ReadDay(Scanner& scanner, std::string& fault) {
  int year = 0;
  int month = 0;
  int day = 0;
  if (!scanner.Read(4, year) || !scanner.Skip('-') || !scanner.Read(2, month) ||
      !scanner.Skip('-') || !scanner.Read(2, day)) {
    fault =
        "is neither now nor seconds since the epoch nor a time such as \"2026-11-21 08:00 +01:00\"";
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) {
    fault = "names a day that the calendar does not have";
    return std::nullopt;
  }
  return std::int64_t{std::chrono::sys_days(date).time_since_epoch().count()} * 86400;
}

std::optional<std::int64_t> ReadClock(Scanner& scanner, std::string& fault) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  const bool isRead = (scanner.Skip('T') || scanner.Skip(' ')) && scanner.Read(2, hour) &&
                      scanner.Skip(':') && scanner.Read(2, minute) &&
                      (!scanner.Skip(':') || scanner.Read(2, second));
  if (!isRead) {
    fault = "lacks the time of day after the date, such as 08:00 or 08:00:30";
    return std::nullopt;
  }
  if (hour > 23 || minute > 59 || second > 59) {
    fault = "names a time of day that no clock shows";
    return std::nullopt;
  }
  return hour * 3600 + minute * 60 + second;
}

/// Seconds that the zone is ahead of UTC.
std::optional<std::int64_t> ReadZone(Scanner& scanner, std::string& fault) {
  scanner.Skip(' ');
  int sign = 0;
  int hours = 0;
  int minutes = 0;
  if (!scanner.Skip('Z')) {
    if (scanner.Skip('+')) sign = 1;
    if (sign == 0 && scanner.Skip('-')) sign = -1;
    const bool isRead = sign != 0 && scanner.Read(2, hours) &&
                        (scanner.Skip(':') ? scanner.Read(2, minutes)
                                           : scanner.atEnd() || scanner.Read(2, minutes));
    if (!isRead || hours > 14 || minutes > 59) {
      fault = "lacks its zone: end it with Z or with an offset such as +01:00";
      return std::nullopt;
    }
  }
  if (!scanner.atEnd()) {
    fault = "goes on after its zone";
    return std::nullopt;
  }
  return sign * (hours * 3600 + minutes * 60);
}

}  // namespace

std::optional<std::int64_t> ParseTime(std::string_view text, std::string& fault) {
  if (text == "now") return Clock::NowSeconds();
  std::int64_t seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (stop == end && error == std::errc()) return seconds;
  if (stop == end && error == std::errc::result_out_of_range) {
    fault = "is beyond 64 bits";
    return std::nullopt;
  }
  Scanner scanner(text);
  const std::optional<std::int64_t> day = ReadDay(scanner, fault);
  if (!day) return std::nullopt;
  const std::optional<std::int64_t> clock = ReadClock(scanner, fault);
  if (!clock) return std::nullopt;
  const std::optional<std::int64_t> zone = ReadZone(scanner, fault);
  if (!zone) return std::nullopt;
  return *day + *clock - *zone;
}

std::string UtcTimeText(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  std::array<char, 64> text{};
  if (::gmtime_r(&time, &parts) == nullptr) return std::to_string(seconds);
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return length > 0 ? std::string(text.data(), length) : std::to_string(seconds);
}

}  // namespace keelstone::host
