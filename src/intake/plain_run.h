#ifndef KEELSTONE_INTAKE_PLAIN_RUN_H
#define KEELSTONE_INTAKE_PLAIN_RUN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "keelstone/run_line.h"

namespace keelstone {

/// Reads lines that are plainly runs in one pass, straight into the run: numbers, words and
/// strings without escapes. It gives up at whatever is rare or wrong; such a line is to be read
/// as JSON from its start (RunLineReader), which alone says what is accepted, and what is wrong.
/// One thread.
class PlainRun {
 public:
  /// False when it has given up; the run is to be renewed then.
  bool Read(std::string_view line, const std::string& defaultDomain, ParsedRun& run);

 private:
  class Cursor;
  /// Members by place, as the object before had them: a number of a name each.
  using Guess = std::array<std::uint8_t, 12>;

  bool ReadRun(Cursor& at, ParsedRun& run);
  bool ReadRunMember(Cursor& at, std::size_t member, ParsedRun& run);
  bool ReadVariables(Cursor& at, ParsedRun& run);
  bool ReadVariable(Cursor& at, ParsedRun& run, std::size_t& count);

  Guess runGuess_{};
  Guess variableGuess_{};
  // Lines that are read as JSON at once, after others on which it has given up.
  std::uint32_t passes_ = 0;
  std::uint32_t givenUp_ = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_PLAIN_RUN_H
