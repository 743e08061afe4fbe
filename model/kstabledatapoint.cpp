#include "model/kstabledatapoint.h"

#include "platform/base64.h"

namespace keelstone {

std::optional<std::string> KSTableDataPoint::GetTableValue() const {
  return DecodeBase64(encodedTable);
}

void KSTableDataPoint::SetTableValue(std::string_view compressed) {
  encodedTable.clear();
  AppendBase64(encodedTable, compressed);
}

}  // namespace keelstone
