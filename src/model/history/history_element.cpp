#include "model/history/history_element.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "base/text/numbers.h"

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
  AppendString(text, point.value);
}

bool ReadTime(HistoryLayout& layout, TextPoint& point) {
  return layout.Skip(kHistoryTimeKey) && layout.Read(point.time);
}

bool ReadValue(HistoryLayout& layout, TextPoint& point) {
  std::string_view value;
  if (!layout.Skip(kHistoryValueKey) || !layout.Read(value)) return false;
  point.value = value;
  return true;
}

bool ReadColumns(HistoryLayout& layout, std::set<std::string>& columns) {
  if (!layout.Skip(kColumnsKey)) return false;
  std::string_view column;
  if (!layout.Read(column)) return true;
  columns.emplace(column);
  while (layout.Skip(',')) {
    // Written in ascending order; what is not has been written by somebody else.
    if (!layout.Read(column) || column <= *columns.rbegin()) return false;
    columns.emplace_hint(columns.end(), column);
  }
  return true;
}

bool ReadContent(HistoryLayout& layout, TableContent& content) {
  std::string_view encoded;
  if (!layout.Skip(kSortKey) || !layout.Read(content.hashSort)) return false;
  if (!ReadColumns(layout, content.hashColumns)) return false;
  if (!layout.Skip(kRawSizeKey) || !layout.Read(content.rawValueSize)) return false;
  if (!layout.Skip(kTableKey) || !layout.Read(encoded)) return false;
  content.encodedTable = encoded;
  return true;
}

/// Whether a text can stand between quotes as it is.
bool IsPlain(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20U;
  });
}

}  // namespace

void AppendElement(std::string& text, const TextPoint& point) {
  AppendTimeAndValue(text, point);
  text += '}';
}

void AppendElement(std::string& text, const KSTableDataPoint& point) {
  AppendTimeAndValue(text, point);
  text += kSortKey;
  const TableContent& content = *point.content;
  text += content.hashSort ? "true" : "false";
  text += kColumnsKey;
  bool isFirst = true;
  for (const std::string& column : content.hashColumns) {
    if (!isFirst) text += ',';
    isFirst = false;
    AppendString(text, column);
  }
  text += kRawSizeKey;
  AppendNumber(text, content.rawValueSize);
  text += kTableKey;
  text += '"';
  text += content.encodedTable;
  text += "\"}";
}

bool ReadElement(HistoryLayout& layout, TextPoint& point) {
  return ReadTime(layout, point) && ReadValue(layout, point) && layout.Skip('}');
}

bool ElementReader<KSTableDataPoint>::Read(HistoryLayout& layout, KSTableDataPoint& point) {
  if (!ReadTime(layout, point)) return false;
  const char* const begin = layout.position();
  if (!lastText_.empty() && layout.Skip(lastText_)) {
    point.value = last_.value;
    point.content = last_.content;
    return true;
  }
  const auto content = std::make_shared<TableContent>();
  if (!ReadValue(layout, point) || !ReadContent(layout, *content) || !layout.Skip('}')) {
    return false;
  }
  point.content = content;
  last_ = point;
  lastText_ = {begin, static_cast<std::size_t>(layout.position() - begin)};
  return true;
}

void ReadElement(const JsonValue& element, TextPoint& point) {
  point.time = element["liveTime"].asTime();
  point.value = element["dataValue"].asString();
}

void ReadElement(const JsonValue& element, KSTableDataPoint& point) {
  ReadElement(element, static_cast<TextPoint&>(point));
  const auto content = std::make_shared<TableContent>();
  content->hashSort = element["hashSort"].asBool();
  const JsonValue& columns = element["hashColumns"];
  if (!columns.isArray()) throw JsonError("the hash columns are no array");
  for (std::size_t i = 0; i < columns.size(); ++i) {
    content->hashColumns.insert(columns[i].asString());
  }
  content->rawValueSize = element["rawValueSize"].asInt64();
  const JsonValue& table = element["tableValue"];
  // A text that is no base64 stays what it is, as in the library's own layout: it is
  // judged when the table is asked for.
  if (table.isString() && IsPlain(table.stringRef())) {
    content->encodedTable = table.stringRef();
  } else {
    content->SetTableValue(table.asBinary());
  }
  point.content = content;
}

}  // namespace keelstone
