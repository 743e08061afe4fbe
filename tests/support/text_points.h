#ifndef KEELSTONE_TESTS_SUPPORT_TEXT_POINTS_H
#define KEELSTONE_TESTS_SUPPORT_TEXT_POINTS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/kstabledatapoint.h"
#include "platform/base64.h"
#include "platform/compressor.h"
#include "tests/support/text_second_reading.h"

namespace keelstone::testing {

inline std::shared_ptr<KSDataBase> StringPoint(std::int64_t time, const std::string& value) {
  return std::make_shared<KSDataPoint<std::string>>(time, value);
}

inline std::string Compressed(std::string text) {
  EXPECT_TRUE(CompressString(text));
  return text;
}

/// A table's point with a content of its own.
inline std::shared_ptr<KSTableDataPoint> TablePoint(const plain::SeenText& seen) {
  const auto point = std::make_shared<KSTableDataPoint>(seen.time, seen.value);
  const auto content = std::make_shared<TableContent>();
  content->hashColumns = seen.columns;
  content->hashSort = seen.sorted;
  content->rawValueSize = static_cast<std::int64_t>(seen.table.size());
  content->SetTableValue(Compressed(seen.table));
  point->content = content;
  return point;
}

/// What a table is in the text of its history.
inline std::string TableElement(const plain::SeenText& seen) {
  std::string columns;
  for (const std::string& column : seen.columns) {
    columns += (columns.empty() ? "" : ",") + plain::Quote(column);
  }
  std::string encoded;
  AppendBase64(encoded, Compressed(seen.table));
  return "{\"liveTime\":" + std::to_string(seen.time) +
         ",\"dataValue\":" + plain::Quote(seen.value) +
         ",\"hashSort\":" + (seen.sorted ? "true" : "false") + ",\"hashColumns\":[" + columns +
         "],\"rawValueSize\":" + std::to_string(seen.table.size()) + ",\"tableValue\":\"" +
         encoded + "\"}";
}

/// The history text of tables.
inline std::string TableHistory(const std::vector<plain::SeenText>& history) {
  std::string list;
  for (const plain::SeenText& seen : history) {
    list += (list.empty() ? "" : ",") + TableElement(seen);
  }
  return list.empty() ? "" : R"({"dataType":5,"dataList":[)" + list + "]}";
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_TEXT_POINTS_H
