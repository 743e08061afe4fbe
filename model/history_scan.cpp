#include "model/history_scan.h"

#include <cstddef>
#include <utility>

#include "model/element_shape.h"
#include "model/history_element.h"
#include "model/history_layout.h"

namespace keelstone {

namespace {

/// Passes over elements that are written like the ones before them.
class LikeElements {
 public:
  explicit LikeElements(EnumKSDataType dataType) : dataType_(dataType) {}

  /// `element`, with the comma behind it, was read.
  void Note(std::string_view element) {
    // One of another shape among many alike leaves theirs in place.
    if (!std::exchange(hasPassed_, false)) shape_.Take(dataType_, element);
  }

  /// Where the elements from `next` on that are like the noted one end.
  const char* Pass(const char* next, const char* end) {
    const char* const passed = shape_.Pass(next, end);
    hasPassed_ = passed != next;
    return passed;
  }

 private:
  EnumKSDataType dataType_;
  ElementShape shape_;
  bool hasPassed_ = false;  // since the last note
};

template <class Point>
std::optional<std::int64_t> NewestTime(EnumKSDataType dataType, std::string_view text) {
  HistoryLayout layout(text);
  if (!layout.SkipHead(dataType)) return std::nullopt;
  LikeElements like(dataType);
  Point point;
  while (true) {
    const char* const begin = layout.position();
    if (!ReadElement(layout, point)) return std::nullopt;
    if (!layout.Skip(',')) break;
    like.Note({begin, static_cast<std::size_t>(layout.position() - begin)});
    layout.JumpTo(like.Pass(layout.position(), text.data() + text.size()));
  }
  // No comma follows the newest: it was read, whatever stands before it.
  if (!layout.SkipTail()) return std::nullopt;
  return point.time;
}

}  // namespace

std::optional<std::int64_t> NewestTimeOfOwnText(EnumKSDataType dataType, std::string_view text) {
  switch (dataType) {
    case KSDataInt64:
      return NewestTime<KSDataPoint<std::int64_t>>(dataType, text);
    case KSDataFloat:
      return NewestTime<KSDataPoint<float>>(dataType, text);
    case KSDataDouble:
      return NewestTime<KSDataPoint<double>>(dataType, text);
    case KSDataString:
      return NewestTime<TextPoint>(dataType, text);
    default:
      return std::nullopt;
  }
}

std::optional<std::int64_t> GuessNewestTime(std::string_view text) {
  const std::size_t last = text.rfind(kHistoryTimeKey);
  if (last == std::string_view::npos) return std::nullopt;
  OwnTextReader reader(text.substr(last + kHistoryTimeKey.size()));
  std::int64_t time = 0;
  return reader.Read(time) ? std::optional(time) : std::nullopt;
}

}  // namespace keelstone
