#ifndef KEELSTONE_HISTORY_DATA_H
#define KEELSTONE_HISTORY_DATA_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/data_point.h"
#include "keelstone/export.h"
#include "keelstone/rule_enums.h"
#include "keelstone/table_data_point.h"

namespace keelstone {

/// The bounded history of one variable's values, oldest first. Its text form is
///
///     {"dataType":1,"dataList":[{"liveTime":1700000000,"dataValue":12}]}
///
/// with times in seconds since the epoch; the empty history is the empty text. The base
/// itself holds nothing and refuses everything. One thread at a time.
class KEELSTONE_EXPORT HistoryDataBase {
 public:
  explicit HistoryDataBase(EnumKSDataType type) : dataType(type) {}
  virtual ~HistoryDataBase();

  /// Appends the points of a history text. False when it is no such text or of another
  /// data type; points read before the fault stay.
  virtual bool FromString(const std::string& text);
  virtual std::string ToString() const;
  virtual std::int32_t GetDataCount() const;
  /// Appends a point and drops the oldest, so that at most `maxCount` stay (the new one
  /// always does). A point of another type is passed over.
  virtual void AddData(const std::shared_ptr<KSDataBase>& point, std::int32_t maxCount);
  /// The value of a point as text: a number's JSON text, a string itself, a table's
  /// digest. `text` stays as it is for a point of another type.
  virtual void GetDataValue(const std::shared_ptr<KSDataBase>& point, std::string& text) const;
  /// Time of the newest point; when empty 0 for numbers and -1 for strings and tables.
  virtual std::int64_t GetLastTime() const;

  /// FromString of a text that stays as it is and where it is as long as this history is
  /// used: of texts as the library writes them no copy is made.
  virtual bool FromLastingText(std::string_view text);
  /// ToString into a text that is there already and keeps its memory.
  virtual void WriteTo(std::string& text) const;

  const EnumKSDataType dataType;
};

/// The elements of a history's list as text, kept beside the points so that a history
/// which was read and grew by a point writes only that point. The text is what `lasting`
/// views, then `text` from `begin` on.
struct HistoryListText {
  std::string_view lasting;
  std::string text;
  std::size_t begin = 0;
};

/// A history of one type of points.
template <class Point>
class KEELSTONE_EXPORT PointHistory : public HistoryDataBase {
 public:
  bool FromString(const std::string& text) override;
  bool FromLastingText(std::string_view text) override;
  std::string ToString() const override;
  void WriteTo(std::string& text) const override;
  std::int32_t GetDataCount() const override;
  void AddData(const std::shared_ptr<KSDataBase>& point, std::int32_t maxCount) override;
  void GetDataValue(const std::shared_ptr<KSDataBase>& point, std::string& text) const override;
  std::int64_t GetLastTime() const override;

  const std::vector<Point>& points() const noexcept { return points_; }
  /// Takes these points, oldest first, in the place of those that are there.
  void TakePoints(std::vector<Point> points);
  /// Gives all points away, with their memory.
  std::vector<Point> ReleasePoints() noexcept;

 protected:
  explicit PointHistory(EnumKSDataType type) : HistoryDataBase(type) {}

 private:
  bool Read(std::string_view text, bool isLasting);
  bool FromOwnLayout(std::string_view text, bool isLasting);

  std::vector<Point> points_;
  HistoryListText listText_;  // the text of all points, while hasListText_
  bool hasListText_ = true;
};

extern template class PointHistory<KSDataPoint<std::int64_t>>;
extern template class PointHistory<KSDataPoint<float>>;
extern template class PointHistory<KSDataPoint<double>>;
extern template class PointHistory<KSDataPoint<std::string>>;
extern template class PointHistory<KSTableDataPoint>;

/// A history of numbers: int64, float or double.
template <class T>
class KEELSTONE_EXPORT NumercialHistoryData : public PointHistory<KSDataPoint<T>> {
 protected:
  using PointHistory<KSDataPoint<T>>::PointHistory;
};

/// A history of int64 values.
class KEELSTONE_EXPORT IntHistoryData final : public NumercialHistoryData<std::int64_t> {
 public:
  IntHistoryData() : NumercialHistoryData(KSDataInt64) {}
};
/// A history of floats.
class KEELSTONE_EXPORT FloatHistoryData final : public NumercialHistoryData<float> {
 public:
  FloatHistoryData() : NumercialHistoryData(KSDataFloat) {}
};
/// A history of doubles.
class KEELSTONE_EXPORT DoubleHistoryData final : public NumercialHistoryData<double> {
 public:
  DoubleHistoryData() : NumercialHistoryData(KSDataDouble) {}
};

/// (The name is part of the interface as it is spelled.)
class KEELSTONE_EXPORT StrHisotryData final : public PointHistory<KSDataPoint<std::string>> {
 public:
  StrHisotryData() : PointHistory(KSDataString) {}
};

/// Its elements also hold "hashSort", "hashColumns", "rawValueSize" and "tableValue", the
/// compressed table in base64.
class KEELSTONE_EXPORT TableHistoryData final : public PointHistory<KSTableDataPoint> {
 public:
  TableHistoryData() : PointHistory(KSDataTable) {}
};

}  // namespace keelstone

#endif  // KEELSTONE_HISTORY_DATA_H
