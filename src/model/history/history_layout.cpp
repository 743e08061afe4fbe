#include "model/history/history_layout.h"

#include "base/text/numbers.h"

namespace keelstone {

namespace {

constexpr std::string_view kHeadKey = "{\"dataType\":";
constexpr std::string_view kListKey = ",\"dataList\":[";
constexpr std::string_view kTail = "]}";

}  // namespace

bool HistoryLayout::SkipHead(EnumKSDataType dataType) {
  std::int64_t type = 0;
  return Skip(kHeadKey) && Read(type) && type == dataType && Skip(kListKey);
}

bool HistoryLayout::SkipTail() { return Skip(kTail) && AtEnd(); }

void WriteHistoryText(EnumKSDataType dataType, std::string_view front, std::string_view back,
                      std::string& text) {
  constexpr std::size_t kRoomForType = 11;
  text.clear();
  text.reserve(kHeadKey.size() + kRoomForType + kListKey.size() + front.size() + back.size() +
               kTail.size());
  text += kHeadKey;
  AppendNumber(text, static_cast<std::int64_t>(dataType));
  text += kListKey;
  text += front;
  text += back;
  text += kTail;
}

}  // namespace keelstone
