#ifndef KEELSTONE_TESTS_SUPPORT_POINTS_H
#define KEELSTONE_TESTS_SUPPORT_POINTS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "keelstone/algorithm_manager.h"
#include "keelstone/compressor.h"
#include "keelstone/data_feature.h"
#include "keelstone/history_data.h"
#include "keelstone/json_reader.h"
#include "keelstone/table_data_point.h"

namespace keelstone::testing {

using NumericTypes = ::testing::Types<std::int64_t, float, double>;

template <class T>
inline constexpr EnumKSDataType kDataTypeOf = std::is_same_v<T, std::int64_t> ? KSDataInt64
                                              : std::is_same_v<T, float>      ? KSDataFloat
                                              : std::is_same_v<T, double>     ? KSDataDouble
                                                                              : KSDataString;

template <class T>
std::shared_ptr<KSDataBase> PointOf(std::int64_t time, T value) {
  return std::make_shared<KSDataPoint<T>>(time, std::move(value));
}

/// A table's point with a content of its own.
inline std::shared_ptr<KSTableDataPoint> TablePoint(std::int64_t time, const std::string& digest,
                                                    const std::string& table = "{}",
                                                    const std::set<std::string>& columns = {},
                                                    bool sorted = false) {
  const auto point = std::make_shared<KSTableDataPoint>(time, digest);
  const auto content = std::make_shared<TableContent>();
  content->hashColumns = columns;
  content->hashSort = sorted;
  content->rawValueSize = static_cast<std::int64_t>(table.size());
  std::string frame = table;
  EXPECT_TRUE(CompressString(frame));
  content->SetTableValue(frame);
  point->content = content;
  return point;
}

/// A point with a JSON value; of a table that is its digest.
inline std::shared_ptr<KSDataBase> PointOf(EnumKSDataType type, std::int64_t time,
                                           const JsonValue& value) {
  if (type == KSDataInt64) return PointOf(time, value.asInt64());
  if (type == KSDataFloat) return PointOf(time, static_cast<float>(value.asDouble()));
  if (type == KSDataDouble) return PointOf(time, value.asDouble());
  if (type == KSDataString) return PointOf(time, value.asString());
  return TablePoint(time, value.asString());
}

/// The values at the times 1001, 1002, …
template <class T>
std::shared_ptr<HistoryDataBase> HistoryOf(const std::vector<T>& values) {
  const std::shared_ptr<HistoryDataBase> history = MakeHistory(kDataTypeOf<T>);
  std::int64_t time = 1000;
  for (const T& value : values) history->AddData(PointOf<T>(++time, value), 1 << 30);
  return history;
}

template <class T>
std::shared_ptr<KSNumercialDataFeature<T>> FeatureOf(
    const std::shared_ptr<HistoryDataBase>& history) {
  auto feature = std::make_shared<KSNumercialDataFeature<T>>();
  EXPECT_TRUE(feature->Calculate(history));
  return feature;
}

/// The JSON value of a text; the text itself when it is none.
inline JsonValue ValueOfText(const std::string& text) {
  JsonValue value;
  return JsonReader::Parse(text, value) ? value : JsonValue(text);
}

/// Whether two JSON values are the same ones of a data type, with whatever digits written.
inline bool SameValues(EnumKSDataType type, const JsonValue& a, const JsonValue& b) {
  if (a.isArray() || a.isObject()) {
    if (a.type() != b.type() || a.size() != b.size()) return false;
    auto other = b.begin();
    for (auto one = a.begin(); one != a.end(); ++one, ++other) {
      if (a.isObject() && one.name() != other.name()) return false;
      if (!SameValues(type, *one, *other)) return false;
    }
    return true;
  }
  const auto isNumber = [](const JsonValue& v) {
    return v.type() == JsonType::Int || v.type() == JsonType::UInt || v.type() == JsonType::Real;
  };
  if (!isNumber(a) || !isNumber(b)) return a == b;
  if (type == KSDataInt64) return a == b;
  if (type == KSDataFloat) {
    return static_cast<float>(a.asDouble()) == static_cast<float>(b.asDouble());
  }
  return a.asDouble() == b.asDouble();
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_POINTS_H
