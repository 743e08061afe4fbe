#ifndef KEELSTONE_INTAKE_TABLE_VALUE_H
#define KEELSTONE_INTAKE_TABLE_VALUE_H

#include <optional>
#include <string>
#include <vector>

#include "keelstone/raw_json.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// How a table is to be digested.
struct TableDigestOptions {
  std::optional<std::vector<std::string>> keys;  // columns that enter; all when not given
  bool sort = true;                              // rows are sorted before
  std::optional<std::string> digest;             // given from outside: nothing is computed
};

/// Why a value is no table; `field` is "value" or "keys".
struct TableFault {
  std::string field;
  std::string text;
};

/// Reads a table, an object with "columns" and "rows" or an array of objects, into the
/// value, the text (the digest), the keys and the flag of `variable`. Any thread.
[[nodiscard]] std::optional<TableFault> ReadTable(const RawJson::Value& value,
                                                  const TableDigestOptions& options,
                                                  VarInfo& variable);

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_TABLE_VALUE_H
