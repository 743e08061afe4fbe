#include "keelstone/table_data_point.h"

#include <utility>

#include "base/text/base64.h"
#include "keelstone/compressor.h"

namespace keelstone {

namespace {

const std::shared_ptr<const TableContent>& NoContent() {
  // Never destroyed: points may outlive what a process destroys at its end.
  static const auto* const none =
      new std::shared_ptr<const TableContent>(std::make_shared<const TableContent>());
  return *none;
}

}  // namespace

std::optional<std::string> TableContent::GetTableValue() const {
  return DecodeBase64(encodedTable);
}

void TableContent::SetTableValue(std::string_view compressed) {
  encodedTable.clear();
  AppendBase64(encodedTable, compressed);
}

std::optional<std::string> TableContent::GetTableText() const {
  std::optional<std::string> text = GetTableValue();
  if (text && !DecompressString(*text, rawValueSize)) text.reset();
  return text;
}

KSTableDataPoint::KSTableDataPoint() : content(NoContent()) {}

KSTableDataPoint::KSTableDataPoint(std::int64_t seconds, std::string digest)
    : KSDataPoint<std::string>(seconds, std::move(digest)), content(NoContent()) {}

}  // namespace keelstone
