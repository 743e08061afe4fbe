#ifndef KEELSTONE_PROGRAM_REPORT_SPARKLINE_H
#define KEELSTONE_PROGRAM_REPORT_SPARKLINE_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace keelstone::host {

/// Whether the terminal's locale is one of UTF-8.
bool IsUtf8Locale();

/// Numbers as one character each, by their height between the least and the greatest; a
/// row of equal numbers is low. `isUtf8`: bars of blocks, else plain characters.
std::string Sparkline(const std::vector<double>& values, bool isUtf8);

/// Texts as one letter each, and what the letters stand for, by first appearance. Beyond 26
/// texts all others are '?', without a legend.
struct StateStrip {
  struct State {
    char letter = '?';
    std::string text;
    std::size_t count = 0;
  };
  std::string strip;
  std::vector<State> states;
};
StateStrip MakeStateStrip(const std::vector<std::string>& values);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_SPARKLINE_H
