#ifndef KEELSTONE_STORAGE_TABLES_NOTE_FAILURE_H
#define KEELSTONE_STORAGE_TABLES_NOTE_FAILURE_H

#include <string_view>

namespace keelstone {

/// Keeps the failure for FirstFailure if it is the first. Empty parts are left out. Any thread;
/// takes a lock of its own only, which is innermost.
void NoteFailure(std::string_view file, std::string_view operation,
                 std::string_view words) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_NOTE_FAILURE_H
