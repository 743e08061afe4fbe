#ifndef KEELSTONE_BINDINGS_C_TABLE_TEXT_H
#define KEELSTONE_BINDINGS_C_TABLE_TEXT_H

#include <string>
#include <string_view>

#include "keelstone/keelstone.h"

namespace keelstone::c {

/// The variable with a table as value, as JSON in the shape that a run's document has.
/// Failure for what cannot be written so.
std::string TableVariableJson(std::string_view name, std::string_view interfaceValue,
                              const ks_table& table);

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_TABLE_TEXT_H
