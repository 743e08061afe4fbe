#include "model/kshistorydata.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "model/history_element.h"
#include "model/history_layout.h"
#include "platform/json_reader.h"
#include "platform/json_value.h"

namespace keelstone {

namespace {

// Of a number; the keys of its element alone take more.
constexpr std::size_t kLeastElementSize = 28;

/// The position behind the quote that ends a string, from the first byte in it; npos when
/// there is none.
std::size_t EndOfString(std::string_view text, std::size_t begin) {
  for (std::size_t quote = text.find('"', begin); quote != text.npos;
       quote = text.find('"', quote + 1)) {
    std::size_t first = quote;  // of the backslashes before the quote
    while (first > begin && text[first - 1] == '\\') --first;
    if ((quote - first) % 2 == 0) return quote + 1;
  }
  return text.npos;
}

}  // namespace

HistoryDataBase::~HistoryDataBase() = default;
bool HistoryDataBase::FromString(const std::string&) { return false; }
std::string HistoryDataBase::ToString() const { return {}; }
void HistoryDataBase::WriteTo(std::string& text) const { text = ToString(); }
std::int32_t HistoryDataBase::GetDataCount() const { return 0; }
void HistoryDataBase::AddData(const std::shared_ptr<KSDataBase>&, std::int32_t) {}
void HistoryDataBase::GetDataValue(const std::shared_ptr<KSDataBase>&, std::string&) const {}
std::int64_t HistoryDataBase::GetLastTime() const { return 0; }

void HistoryListText::DropFront(std::size_t count) {
  std::size_t at = begin_;
  for (; count > 0 && at < text_.size(); ++at) {
    if (text_[at] == '"') {
      // Strings may hold braces: hop over them.
      at = EndOfString(text_, at + 1);
      if (at == std::string::npos) return Clear();
      --at;
    } else if (text_[at] == '}') {
      --count;
    }
  }
  begin_ = std::min(at + 1, text_.size());  // behind the comma too
  // Once more of it is dropped than kept, let it go.
  if (begin_ > size()) {
    text_.erase(0, begin_);
    begin_ = 0;
  }
}

std::string& HistoryListText::NextElement() {
  if (size() == 0) {
    Clear();
  } else {
    text_ += ',';
  }
  return text_;
}

void HistoryListText::Clear() noexcept {
  text_.clear();
  begin_ = 0;
}

template <class Point>
bool PointHistory<Point>::FromOwnLayout(std::string_view text) {
  HistoryLayout layout(text);
  if (!layout.SkipHead(dataType)) return false;
  const std::size_t before = points_.size();
  const char* const listBegin = layout.position();
  if constexpr (!std::is_base_of_v<TextPoint, Point>) {
    points_.reserve(before + text.size() / kLeastElementSize);
  }
  ElementReader<Point> reader;
  bool isSound = true;
  do {
    Point point;
    isSound = reader.Read(layout, point);
    if (isSound) points_.push_back(std::move(point));
  } while (isSound && layout.Skip(','));
  const char* const listEnd = layout.position();
  if (!isSound || !layout.SkipTail()) {
    points_.resize(before);
    return false;
  }
  if (hasListText_) {
    const auto size = static_cast<std::size_t>(listEnd - listBegin);
    std::string& list = listText_.NextElement();
    list.reserve(list.size() + size + size / 16);  // most histories grow by a point
    list.append(listBegin, size);
  }
  return true;
}

template <class Point>
bool PointHistory<Point>::FromString(const std::string& text) {
  if (FromOwnLayout(text)) return true;
  JsonValue document;
  if (!JsonReader::Parse(text, document)) return false;
  try {
    const JsonValue& constant = document;
    if (constant["dataType"].asInt() != dataType) return false;
    const JsonValue& list = constant["dataList"];
    if (!list.isArray() && !list.isNull()) return false;
    hasListText_ = false;
    listText_.Clear();
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
std::string PointHistory<Point>::ToString() const {
  std::string text;
  PointHistory::WriteTo(text);
  return text;
}

template <class Point>
void PointHistory<Point>::WriteTo(std::string& text) const {
  if (points_.empty()) return text.clear();
  if (hasListText_) return WriteHistoryText(dataType, listText_.view(), text);
  HistoryListText list;
  for (const Point& point : points_) AppendElement(list.NextElement(), point);
  WriteHistoryText(dataType, list.view(), text);
}

template <class Point>
std::int32_t PointHistory<Point>::GetDataCount() const {
  return static_cast<std::int32_t>(points_.size());
}

template <class Point>
void PointHistory<Point>::AddData(const std::shared_ptr<KSDataBase>& point, std::int32_t maxCount) {
  const auto* const added = dynamic_cast<const Point*>(point.get());
  if (added == nullptr) return;
  const std::size_t kept = maxCount < 1 ? 0 : static_cast<std::size_t>(maxCount) - 1;
  if (points_.size() > kept) {
    const std::size_t dropped = points_.size() - kept;
    points_.erase(points_.begin(), points_.begin() + static_cast<std::ptrdiff_t>(dropped));
    if (hasListText_) listText_.DropFront(dropped);
  }
  points_.push_back(*added);
  if (hasListText_) AppendElement(listText_.NextElement(), *added);
}

template <class Point>
void PointHistory<Point>::GetDataValue(const std::shared_ptr<KSDataBase>& point,
                                       std::string& text) const {
  const auto* const valued = dynamic_cast<const Point*>(point.get());
  if (valued != nullptr) text = ValueText(*valued);
}

template <class Point>
std::int64_t PointHistory<Point>::GetLastTime() const {
  constexpr bool kIsText = std::is_base_of_v<TextPoint, Point>;
  if (points_.empty()) return kIsText ? -1 : 0;
  return points_.back().time;
}

template class PointHistory<KSDataPoint<std::int64_t>>;
template class PointHistory<KSDataPoint<float>>;
template class PointHistory<KSDataPoint<double>>;
template class PointHistory<KSDataPoint<std::string>>;
template class PointHistory<KSTableDataPoint>;

}  // namespace keelstone
