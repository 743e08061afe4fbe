#include "model/history_element.h"

#include <string_view>

#include "platform/numbers.h"

namespace keelstone {

namespace {

constexpr std::string_view kSortKey = ",\"hashSort\":";
constexpr std::string_view kColumnsKey = ",\"hashColumns\":[";
constexpr std::string_view kRawSizeKey = "],\"rawValueSize\":";
constexpr std::string_view kTableKey = ",\"tableValue\":";

void AppendTimeAndValue(std::string& text, const TextPoint& point) {
  text += kHistoryTimeKey;
  AppendNumber(text, point.time);
  text += kHistoryValueKey;
  JsonValue(point.value).appendTo(text);
}

bool ReadTimeAndValue(HistoryLayout& layout, TextPoint& point) {
  std::string_view value;
  if (!layout.Skip(kHistoryTimeKey) || !layout.Read(point.time)) return false;
  if (!layout.Skip(kHistoryValueKey) || !layout.Read(value)) return false;
  point.value = value;
  return true;
}

bool ReadColumns(HistoryLayout& layout, std::set<std::string>& columns) {
  if (!layout.Skip(kColumnsKey)) return false;
  std::string_view column;
  if (!layout.Read(column)) return true;
  columns.emplace_hint(columns.end(), column);
  while (layout.Skip(',')) {
    if (!layout.Read(column)) return false;
    columns.emplace_hint(columns.end(), column);
  }
  return true;
}

}  // namespace

void AppendElement(std::string& text, const TextPoint& point) {
  AppendTimeAndValue(text, point);
  text += '}';
}

void AppendElement(std::string& text, const KSTableDataPoint& point) {
  AppendTimeAndValue(text, point);
  text += kSortKey;
  text += point.hashSort ? "true" : "false";
  text += kColumnsKey;
  bool isFirst = true;
  for (const std::string& column : point.hashColumns) {
    if (!isFirst) text += ',';
    isFirst = false;
    JsonValue(column).appendTo(text);
  }
  text += kRawSizeKey;
  AppendNumber(text, point.rawValueSize);
  text += kTableKey;
  text += '"';
  text += point.encodedTable;
  text += "\"}";
}

bool ReadElement(HistoryLayout& layout, TextPoint& point) {
  return ReadTimeAndValue(layout, point) && layout.Skip('}');
}

bool ReadElement(HistoryLayout& layout, KSTableDataPoint& point) {
  std::string_view encoded;
  if (!ReadTimeAndValue(layout, point)) return false;
  if (!layout.Skip(kSortKey) || !layout.Read(point.hashSort)) return false;
  if (!ReadColumns(layout, point.hashColumns)) return false;
  if (!layout.Skip(kRawSizeKey) || !layout.Read(point.rawValueSize)) return false;
  if (!layout.Skip(kTableKey) || !layout.Read(encoded) || !layout.Skip('}')) return false;
  point.encodedTable = encoded;
  return true;
}

void ReadElement(const JsonValue& element, TextPoint& point) {
  point.time = element["liveTime"].asTime();
  point.value = element["dataValue"].asString();
}

void ReadElement(const JsonValue& element, KSTableDataPoint& point) {
  ReadElement(element, static_cast<TextPoint&>(point));
  point.hashSort = element["hashSort"].asBool();
  const JsonValue& columns = element["hashColumns"];
  for (std::size_t i = 0; i < columns.size(); ++i) point.hashColumns.insert(columns[i].asString());
  point.rawValueSize = element["rawValueSize"].asInt64();
  point.SetTableValue(element["tableValue"].asBinary());
}

}  // namespace keelstone
