#include "keelstone/history_data.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "model/history/cast_to.h"
#include "model/history/element_shape.h"
#include "model/history/history_element.h"
#include "model/history/history_layout.h"
#include "model/history/list_text.h"

namespace keelstone {

namespace {

template <class Point>
constexpr bool kIsText = std::is_base_of_v<TextPoint, Point>;

// Of a number; the keys of its element alone take more.
constexpr std::size_t kLeastElementSize = 28;

template <class Point>
constexpr bool kHasShapes = !kIsText<Point>;

/// Reads elements up to the last one that no comma follows; false at the first that is not
/// of the library's own layout.
template <class Point>
bool ReadElements(HistoryLayout& layout, EnumKSDataType dataType, const char* end,
                  std::vector<Point>& points) {
  ElementReader<Point> reader;
  LikeElements like(dataType);
  while (true) {
    const char* const begin = layout.position();
    Point point;
    if (!reader.Read(layout, point)) return false;
    points.push_back(std::move(point));
    if (!layout.Skip(',')) return true;
    if constexpr (kHasShapes<Point>) {
      const char* next = layout.position();
      like.Note({begin, static_cast<std::size_t>(next - begin)});
      const char* const passed = like.Pass(next, end);
      for (; next != passed; next += like.shape().size()) {
        like.shape().Read(next, points.emplace_back());
      }
      layout.JumpTo(passed);
    }
  }
}

}  // namespace

HistoryDataBase::~HistoryDataBase() = default;
bool HistoryDataBase::FromString(const std::string&) { return false; }
bool HistoryDataBase::FromLastingText(std::string_view) { return false; }
std::string HistoryDataBase::ToString() const { return {}; }
void HistoryDataBase::WriteTo(std::string& text) const { text = ToString(); }
std::int32_t HistoryDataBase::GetDataCount() const { return 0; }
void HistoryDataBase::AddData(const std::shared_ptr<KSDataBase>&, std::int32_t) {}
void HistoryDataBase::GetDataValue(const std::shared_ptr<KSDataBase>&, std::string&) const {}
std::int64_t HistoryDataBase::GetLastTime() const { return 0; }

template <class Point>
bool PointHistory<Point>::FromOwnLayout(std::string_view text, bool isLasting) {
  HistoryLayout layout(text);
  if (!layout.SkipHead(dataType)) return false;
  const std::size_t before = points_.size();
  const char* const listBegin = layout.position();
  if constexpr (!std::is_base_of_v<TextPoint, Point>) {
    points_.reserve(before + text.size() / kLeastElementSize);
  }
  const bool isSound = ReadElements(layout, dataType, text.data() + text.size(), points_);
  const char* const listEnd = layout.position();
  if (!isSound || !layout.SkipTail()) {
    points_.resize(before);
    return false;
  }
  if (hasListText_) {
    Append(listText_, {listBegin, static_cast<std::size_t>(listEnd - listBegin)}, isLasting);
  }
  return true;
}

template <class Point>
bool PointHistory<Point>::FromString(const std::string& text) {
  return Read(text, false);
}

template <class Point>
bool PointHistory<Point>::FromLastingText(std::string_view text) {
  return Read(text, true);
}

template <class Point>
bool PointHistory<Point>::Read(std::string_view text, bool isLasting) {
  if (FromOwnLayout(text, isLasting)) return true;
  JsonValue document;
  if (!JsonReader::Parse(text, document)) return false;
  try {
    const JsonValue& constant = document;
    if (constant["dataType"].asInt() != dataType) return false;
    const JsonValue& list = constant["dataList"];
    // Without a list there are no numbers, but of texts it must be there.
    if (!list.isArray() && (kIsText<Point> || !list.isNull())) return false;
    hasListText_ = false;
    Clear(listText_);
    for (const JsonValue& element : list) {
      Point point;
      ReadElement(element, point);
      points_.push_back(std::move(point));
    }
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

template <class Point>
void PointHistory<Point>::TakePoints(std::vector<Point> points) {
  points_ = std::move(points);
  hasListText_ = false;
  Clear(listText_);
}

template <class Point>
std::vector<Point> PointHistory<Point>::ReleasePoints() noexcept {
  Clear(listText_);
  return std::exchange(points_, {});
}

template <class Point>
std::string PointHistory<Point>::ToString() const {
  std::string text;
  PointHistory::WriteTo(text);
  return text;
}

template <class Point>
void PointHistory<Point>::WriteTo(std::string& text) const {
  if (points_.empty()) return text.clear();
  if (hasListText_) return WriteHistoryText(dataType, listText_.lasting, OwnPart(listText_), text);
  HistoryListText list;
  for (const Point& point : points_) AppendElement(NextElement(list), point);
  WriteHistoryText(dataType, list.lasting, OwnPart(list), text);
}

template <class Point>
std::int32_t PointHistory<Point>::GetDataCount() const {
  return static_cast<std::int32_t>(points_.size());
}

template <class Point>
void PointHistory<Point>::AddData(const std::shared_ptr<KSDataBase>& point, std::int32_t maxCount) {
  const auto* const added = CastTo<const Point>(point.get());
  if (added == nullptr) return;
  const std::size_t kept = maxCount < 1 ? 0 : static_cast<std::size_t>(maxCount) - 1;
  if (points_.size() > kept) {
    const std::size_t dropped = points_.size() - kept;
    points_.erase(points_.begin(), points_.begin() + static_cast<std::ptrdiff_t>(dropped));
    if (hasListText_) DropFront(listText_, dropped, kIsText<Point>);
  }
  points_.push_back(*added);
  if (hasListText_) AppendElement(NextElement(listText_), *added);
}

template <class Point>
void PointHistory<Point>::GetDataValue(const std::shared_ptr<KSDataBase>& point,
                                       std::string& text) const {
  const auto* const valued = dynamic_cast<const Point*>(point.get());
  if (valued != nullptr) text = ValueText(*valued);
}

template <class Point>
std::int64_t PointHistory<Point>::GetLastTime() const {
  if (points_.empty()) return kIsText<Point> ? -1 : 0;
  return points_.back().time;
}

template class PointHistory<KSDataPoint<std::int64_t>>;
template class PointHistory<KSDataPoint<float>>;
template class PointHistory<KSDataPoint<double>>;
template class PointHistory<KSDataPoint<std::string>>;
template class PointHistory<KSTableDataPoint>;

}  // namespace keelstone
