#include "model/history_layout.h"

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

void WriteHistoryText(EnumKSDataType dataType, std::string_view list, std::string& text) {
  const std::string type = std::to_string(dataType);
  text.clear();
  text.reserve(kHeadKey.size() + type.size() + kListKey.size() + list.size() + kTail.size());
  text += kHeadKey;
  text += type;
  text += kListKey;
  text += list;
  text += kTail;
}

}  // namespace keelstone
