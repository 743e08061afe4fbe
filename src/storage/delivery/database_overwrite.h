#ifndef KEELSTONE_STORAGE_DELIVERY_DATABASE_OVERWRITE_H
#define KEELSTONE_STORAGE_DELIVERY_DATABASE_OVERWRITE_H

#include <stdexcept>
#include <string>

#include "keelstone/cppsqlite3.h"

namespace keelstone {

/// Why a delivered database cannot be taken over.
class DeliveryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a delivered database must hold. Texts are literals.
struct DeliveredTable {
  const char* table;
  const char* columns;  // separated by commas, as a SELECT lists them
  // Names the first row that cannot be taken over, and why; empty when all can.
  std::string (*rowFault)(CppSQLite3DB& source) = nullptr;
};

/// Opens a delivered database for reading only. Throws DeliveryError when `from` is no
/// file, is the file `to`, lacks the table or one of its columns, has such a column
/// computed, has a trigger, is damaged, or holds a row of a wrong shape; CppSQLite3Exception when
/// it is no database or one of a newer layout, and when its schema calls functions. A source that
/// is being written is waited for. Nothing is made beside it: one in write-ahead mode that nobody
/// has open is read from a copy in the system's folder for temporary files.
void OpenDelivered(CppSQLite3DB& source, const std::string& from, const std::string& to,
                   const DeliveredTable& expected);

/// Puts a copy of the database `from` in the place of the file `to`, whose folder is made
/// when it is missing, in one step: whoever opens `to` finds the old or the new database
/// whole, after a crash at any moment too. Who has the old file open goes on reading it
/// undisturbed; SQLite refuses its writes from then on. Writers of the old file are waited
/// for, and what one has left half done is rolled back first, so that its journal can
/// never be applied to the new file. Throws what OpenDelivered throws, and what SQLite or
/// the file system refuses; then `to` is as it was. The caller holds the lock record, and has
/// made `source`, which is opened here, before it took it.
void OverwriteDatabase(CppSQLite3DB& source, const std::string& from, const std::string& to,
                       const DeliveredTable& expected);

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_DELIVERY_DATABASE_OVERWRITE_H
