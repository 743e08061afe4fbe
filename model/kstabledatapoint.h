#ifndef KEELSTONE_MODEL_KSTABLEDATAPOINT_H
#define KEELSTONE_MODEL_KSTABLEDATAPOINT_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "model/ksdatapoint.h"
#include "platform/export.h"

namespace keelstone {

/// A table: its digest as the value, and its content, compressed. The content is kept as
/// it is stored, in base64, and decoded only when somebody asks for it.
class KEELSTONE_EXPORT KSTableDataPoint final : public KSDataPoint<std::string> {
 public:
  using KSDataPoint<std::string>::KSDataPoint;

  /// What the compressor made; nothing when the stored text is no base64.
  std::optional<std::string> GetTableValue() const;
  void SetTableValue(std::string_view compressed);

  std::string encodedTable;           // base64 of the compressed table text
  std::int64_t rawValueSize = 0;      // bytes of the uncompressed table text
  std::set<std::string> hashColumns;  // the columns that entered the digest
  bool hashSort = false;              // rows were sorted before digesting
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_KSTABLEDATAPOINT_H
