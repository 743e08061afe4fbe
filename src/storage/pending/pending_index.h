#ifndef KEELSTONE_STORAGE_PENDING_PENDING_INDEX_H
#define KEELSTONE_STORAGE_PENDING_PENDING_INDEX_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/rule_records.h"

namespace keelstone {

/// What a pending row is looked up by within its unit; views of texts that live elsewhere.
struct PendingKey {
  std::string_view interfaceValue;
  std::string_view variableSource;
  std::string_view param;
  std::string_view variableName;

  friend bool operator==(const PendingKey&, const PendingKey&) = default;
  std::size_t Hash() const noexcept;
};

/// One variable of a pending rule row.
struct PendingDefinition {
  const ObjectRuleData* row = nullptr;
  const RuleDefinitionMap::value_type* entry = nullptr;

  explicit operator bool() const noexcept { return row != nullptr; }
  PendingKey Key() const noexcept {
    return {row->object.interfaceValue, row->variableSource, row->variableParam, entry->first};
  }
};

/// A pending history row.
struct PendingHistory {
  const ObjectRuleHistoryData* row = nullptr;

  explicit operator bool() const noexcept { return row != nullptr; }
  PendingKey Key() const noexcept {
    return {row->object.interfaceValue, row->variableSource, row->variableParam, row->variableName};
  }
};

/// The first row of each key, found in one step however many there are. A lookup among many
/// rows costs as much as the memory that it touches: the table of hashes is small, and the
/// rows and the texts of their keys lie in the order in which they came, in which most are
/// looked up again. Rows must stay where they are as long as they stand in it. One thread
/// at a time may change it; several may look.
template <class Row>
class PendingIndex {
 public:
  void Reserve(std::size_t rows);
  /// Adds the row unless its key is there already.
  void Add(const Row& row) {
    const PendingKey key = row.Key();
    Add(row, key, key.Hash());
  }
  /// Adds the rows of `later`, where a key has none yet.
  void Add(const PendingIndex& later);
  /// The key's first row; nothing for one that is not there.
  Row Find(const PendingKey& key) const noexcept;

 private:
  struct Slot {
    std::uint32_t tag = 0;     // high bits of the hash
    std::uint32_t number = 0;  // of the entry, counted from 1; 0: the slot is free
  };
  struct Entry {
    Row row;
    std::size_t hash;
    std::size_t key;  // where its texts begin
  };

  void Add(const Row& row, const PendingKey& key, std::size_t hash);
  PendingKey KeyOf(const Entry& entry) const noexcept;
  std::size_t Seek(const PendingKey& key, std::size_t hash) const noexcept;

  std::vector<Slot> slots_;  // a power of two, at most half of them taken
  std::vector<Entry> entries_;
  std::string keys_;  // of each entry: the lengths of the texts, then the texts
};

extern template class PendingIndex<PendingDefinition>;
extern template class PendingIndex<PendingHistory>;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_PENDING_PENDING_INDEX_H
