#include "model/history/history_scan.h"

#include <cstddef>

#include "model/history/element_shape.h"
#include "model/history/history_element.h"
#include "model/history/history_layout.h"

namespace keelstone {

namespace {

// Passes over one element of the library's own layout and answers its time.

bool PassElement(HistoryLayout& layout, std::int64_t& time, std::int64_t* /*value*/) {
  return layout.Skip(kHistoryTimeKey) && layout.Read(time) && layout.Skip(kHistoryValueKey) &&
         layout.SkipInteger() && layout.Skip('}');
}

bool PassElement(HistoryLayout& layout, std::int64_t& time, double* /*value*/) {
  return layout.Skip(kHistoryTimeKey) && layout.Read(time) && layout.Skip(kHistoryValueKey) &&
         layout.SkipReal() && layout.Skip('}');
}

bool PassElement(HistoryLayout& layout, std::int64_t& time, std::string* /*value*/) {
  std::string_view value;
  return layout.Skip(kHistoryTimeKey) && layout.Read(time) && layout.Skip(kHistoryValueKey) &&
         layout.Read(value) && layout.Skip('}');
}

bool PassElement(HistoryLayout& layout, std::int64_t& time, float* /*value*/) {
  float value = 0.0F;
  return layout.Skip(kHistoryTimeKey) && layout.Read(time) && layout.Skip(kHistoryValueKey) &&
         layout.Read(value) && layout.Skip('}');
}

template <class Value>
std::optional<std::int64_t> NewestTime(EnumKSDataType dataType, std::string_view text) {
  HistoryLayout layout(text);
  if (!layout.SkipHead(dataType)) return std::nullopt;
  LikeElements like(dataType);
  std::int64_t time = 0;
  while (true) {
    const char* const begin = layout.position();
    if (!PassElement(layout, time, static_cast<Value*>(nullptr))) return std::nullopt;
    if (!layout.Skip(',')) break;
    like.Note({begin, static_cast<std::size_t>(layout.position() - begin)});
    layout.JumpTo(like.Pass(layout.position(), text.data() + text.size()));
  }
  // No comma follows the newest: it was passed by itself, whatever stands before it.
  if (!layout.SkipTail()) return std::nullopt;
  return time;
}

}  // namespace

std::optional<std::int64_t> NewestTimeOfOwnText(EnumKSDataType dataType, std::string_view text) {
  switch (dataType) {
    case KSDataInt64:
      return NewestTime<std::int64_t>(dataType, text);
    case KSDataFloat:
      return NewestTime<float>(dataType, text);
    case KSDataDouble:
      return NewestTime<double>(dataType, text);
    case KSDataString:
      return NewestTime<std::string>(dataType, text);
    default:
      return std::nullopt;
  }
}

std::optional<std::int64_t> GuessNewestTime(std::string_view text) {
  // The newest number, or text without braces, begins with the last brace that opens.
  const std::size_t last = text.rfind('{');
  if (last == std::string_view::npos) return std::nullopt;
  OwnTextReader reader(text.substr(last));
  std::int64_t time = 0;
  return reader.Skip(kHistoryTimeKey) && reader.Read(time) ? std::optional(time) : std::nullopt;
}

}  // namespace keelstone
