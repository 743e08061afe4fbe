#ifndef KEELSTONE_INTAKE_STORED_HISTORY_H
#define KEELSTONE_INTAKE_STORED_HISTORY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/history_data.h"
#include "keelstone/judged_values.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// A number for the value of a variable, equal for equal values of one type.
std::uint64_t IdentityOf(const VarInfo& variable);

/// The points of a history text, oldest first. One thread.
class StoredHistory {
 public:
  /// Nothing for an empty text and for one that is no history of this type.
  static std::optional<StoredHistory> Read(EnumKSDataType dataType, const std::string& text);

  /// Never empty.
  const std::vector<NewestValue>& points() const noexcept { return points_; }
  /// The history's text without the points that are later than `time`.
  std::string TextUntil(std::int64_t time) const;

 private:
  std::shared_ptr<HistoryDataBase> history_;
  std::vector<NewestValue> points_;
};

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_STORED_HISTORY_H
