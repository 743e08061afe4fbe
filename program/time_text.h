#ifndef KEELSTONE_PROGRAM_TIME_TEXT_H
#define KEELSTONE_PROGRAM_TIME_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace keelstone::host {

/// Reads a time: seconds since the epoch, a local time with its zone
/// ("2026-11-21 08:00 +01:00", "2026-11-21T08:00:00Z"), or "now". Nothing when it is none of
/// them; `fault` then says what is wrong.
std::optional<std::int64_t> ParseTime(std::string_view text, std::string& fault);

/// "2026-11-21T07:00:00Z"; the number itself where no calendar reaches.
std::string UtcTimeText(std::int64_t seconds);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_TIME_TEXT_H
