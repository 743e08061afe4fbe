#ifndef KEELSTONE_STORAGE_TABLES_JOINT_COMMIT_H
#define KEELSTONE_STORAGE_TABLES_JOINT_COMMIT_H

#include <string>

#include "keelstone/cppsqlite3.h"

/// What one commit over two database files needs of them. One thread, which holds both.
namespace keelstone {

/// Whether a fault passes, or concerns the rows as much as the file: written one after the
/// other the two tables would fare no better, and one might end ahead of the other. `code`
/// is SQLite's.
bool MayPass(int code);

/// Turns an open file that is in write-ahead mode back to a rollback journal; false when
/// somebody uses it meanwhile, and it stays as it is. With a write-ahead log each file
/// would be committed for itself. Throws CppSQLite3Exception.
bool HasRollbackJournal(CppSQLite3DB& db, const std::string& schema);

/// Removes the lists of journals that a commit over the two files left behind when it broke
/// off while it began, which nobody else would remove. Called with both files held for
/// writing: SQLite has rolled back by then what their journals held, and no other commit
/// over them runs.
void RemoveAbandonedSuperJournals(const std::string& database, const std::string& second);

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_JOINT_COMMIT_H
