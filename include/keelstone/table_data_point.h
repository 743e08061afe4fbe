#ifndef KEELSTONE_TABLE_DATA_POINT_H
#define KEELSTONE_TABLE_DATA_POINT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "keelstone/data_point.h"
#include "keelstone/export.h"

namespace keelstone {

/// A table without its digest. The table's text is kept as it is stored, compressed and in
/// base64, and decoded only when somebody asks for it.
struct KEELSTONE_EXPORT TableContent {
  /// What the compressor made; nothing when the stored text is no base64.
  std::optional<std::string> GetTableValue() const;
  void SetTableValue(std::string_view compressed);
  /// The table's JSON text; nothing when what is stored does not give `rawValueSize` bytes.
  std::optional<std::string> GetTableText() const;

  std::string encodedTable;           // base64 of the compressed table text
  std::int64_t rawValueSize = 0;      // bytes of the uncompressed table text
  std::set<std::string> hashColumns;  // the columns that entered the digest
  bool hashSort = false;              // rows were sorted before digesting
};

/// A table: its digest as the value, and its content. Points that hold the same table share
/// one content, which never changes.
class KEELSTONE_EXPORT KSTableDataPoint final : public KSDataPoint<std::string> {
 public:
  KSTableDataPoint();
  KSTableDataPoint(std::int64_t seconds, std::string digest);

  std::shared_ptr<const TableContent> content;  // never empty
};

}  // namespace keelstone

#endif  // KEELSTONE_TABLE_DATA_POINT_H
