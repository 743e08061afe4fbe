#ifndef KEELSTONE_TABLE_CHANGES_H
#define KEELSTONE_TABLE_CHANGES_H

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// What one kind of change came to: how many rows, and the first of them.
struct KEELSTONE_EXPORT KSChangedRows {
  static constexpr std::size_t kMostRows = 20;

  std::size_t count = 0;
  std::vector<JsonValue> rows;  // kMostRows at most

  void Add(JsonValue row);
  /// "count" and "rows".
  JsonValue ToJsonValue() const;
};

/// What became of a table's rows. Rows are known by their cells in the key columns, those
/// that enter the digest; several rows with the same cells are told apart by their order.
/// A value type.
struct KEELSTONE_EXPORT KSTableChanges {
  std::vector<std::string> keys;  // the key columns, ascending
  KSChangedRows added;            // each row an object of its cells by column
  KSChangedRows removed;
  /// Objects with "key" (the cells of the key columns), "before" and "after" (the other
  /// cells, where they differ). None when all columns are key columns.
  KSChangedRows changed;
  bool isReordered = false;  // the same rows by their keys, in another order

  /// Compares two tables of the form {"columns":[…],"rows":[[…]]}; nothing when one is of
  /// another form. Without key columns all columns are.
  static std::optional<KSTableChanges> Between(const JsonValue& before, const JsonValue& after,
                                               const std::set<std::string>& keyColumns);

  bool isEmpty() const noexcept {
    return added.count + removed.count + changed.count == 0 && !isReordered;
  }
  /// "2 rows added (10.9.0.0/16, eth0; …), 1 removed (…)"; "" when nothing changed.
  std::string InWords() const;
  /// "keys", "added", "removed", "changed", and "reordered" where that is all.
  JsonValue ToJsonValue() const;
};

}  // namespace keelstone

#endif  // KEELSTONE_TABLE_CHANGES_H
