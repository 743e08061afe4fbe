#ifndef KEELSTONE_BINDINGS_C_TABLE_OF_H
#define KEELSTONE_BINDINGS_C_TABLE_OF_H

#include "keelstone/keelstone.h"
#include "keelstone/run_values.h"

namespace keelstone::c {

/// The table as the library takes it. Failure for pointers and types that cannot be.
ValueTable TableOf(const ks_table& table);

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_TABLE_OF_H
