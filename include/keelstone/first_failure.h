#ifndef KEELSTONE_FIRST_FAILURE_H
#define KEELSTONE_FIRST_FAILURE_H

#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// What failed first of all that the databases were asked for in this process: file,
/// operation and the words of SQLite or the system. Empty when nothing has failed. A
/// program that is about to end tells its user so, whether or not the log could be
/// written. Any thread.
KEELSTONE_EXPORT std::string FirstFailure();

}  // namespace keelstone

#endif  // KEELSTONE_FIRST_FAILURE_H
