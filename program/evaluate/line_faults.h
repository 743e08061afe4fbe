#ifndef KEELSTONE_PROGRAM_EVALUATE_LINE_FAULTS_H
#define KEELSTONE_PROGRAM_EVALUATE_LINE_FAULTS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "program/console.h"

namespace keelstone::host {

/// Tells the first faults of a kind, one a line, and counts the others. One thread.
class LineFaults {
 public:
  static constexpr std::uint64_t kShown = 100;

  /// `rest` is said once in place of what is only counted.
  LineFaults(Console& console, std::string_view rest) : console_(console), rest_(rest) {}

  void Add(std::string_view fault) {
    if (++count_ <= kShown) console_.Say(fault);
    if (count_ == kShown + 1) console_.Say(rest_);
  }
  std::uint64_t count() const noexcept { return count_; }

 private:
  Console& console_;
  std::string rest_;
  std::uint64_t count_ = 0;
};

/// What is said of a line that is longer than so many bytes.
std::string TooLongText(std::size_t maxLine);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_LINE_FAULTS_H
