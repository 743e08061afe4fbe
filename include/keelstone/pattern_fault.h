#ifndef KEELSTONE_PATTERN_FAULT_H
#define KEELSTONE_PATTERN_FAULT_H

#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// What makes a text no pattern of a regular expression rule: that it is no regular
/// expression in Perl's syntax, is longer than 256 KiB, calls a part of itself (`(?R)`,
/// `(?1)`, `(?&name)`), holds the verb `(*ACCEPT)`, or another one (`(*PRUNE)`) in a group
/// that repeats. Empty for a sound one. Any thread.
KEELSTONE_EXPORT std::string PatternFault(const std::string& pattern);

}  // namespace keelstone

#endif  // KEELSTONE_PATTERN_FAULT_H
