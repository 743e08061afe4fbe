#ifndef KEELSTONE_FIRST_FAILURE_H
#define KEELSTONE_FIRST_FAILURE_H

#include <string>
#include <string_view>

#include "keelstone/export.h"

namespace keelstone {

/// What failed first of all that the databases were asked for in this process: file,
/// operation and the words of SQLite or the system. Empty when nothing has failed. A
/// program that is about to end tells its user so, whether or not the log could be
/// written. Any thread.
KEELSTONE_EXPORT std::string FirstFailure();

/// Keeps the failure if it is the first. Empty parts are left out. Any thread; takes a lock
/// of its own only, which is innermost.
void NoteFailure(std::string_view file, std::string_view operation,
                 std::string_view words) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_FIRST_FAILURE_H
