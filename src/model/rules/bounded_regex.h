#ifndef KEELSTONE_MODEL_RULES_BOUNDED_REGEX_H
#define KEELSTONE_MODEL_RULES_BOUNDED_REGEX_H

#include <memory>
#include <string>
#include <string_view>

#include "keelstone/pattern_fault.h"

namespace keelstone {

/// A regular expression (Perl syntax, letter case does not count) each of whose searches
/// ends after about a second at most. What the matcher does is counted, not timed, so that
/// the answer does not depend on the machine. It answers as the unbounded search does for
/// all texts that are not given up. Any thread, while none assigns to it.
class BoundedRegex {
 public:
  explicit BoundedRegex(const std::string& pattern);
  ~BoundedRegex();
  BoundedRegex(BoundedRegex&&) noexcept;
  BoundedRegex& operator=(BoundedRegex&&) noexcept;

  /// What PatternFault says of the pattern; empty for a sound one.
  const std::string& fault() const { return fault_; }
  /// Whether a match stands anywhere in the text; for a sound pattern only. Throws a
  /// std::exception when the search takes too many steps, states or memory.
  bool IsIn(std::string_view text) const;

 private:
  struct Compiled;
  std::unique_ptr<const Compiled> compiled_;  // of a sound pattern
  std::string fault_;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_RULES_BOUNDED_REGEX_H
