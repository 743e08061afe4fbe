#include "model/history_layout.h"

#include "platform/numbers.h"

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

std::string HistoryText(EnumKSDataType dataType, std::string_view list) {
  constexpr std::size_t kTypeDigits = 11;
  std::string text;
  text.reserve(kHeadKey.size() + kTypeDigits + kListKey.size() + list.size() + kTail.size());
  text += kHeadKey;
  AppendNumber(text, static_cast<std::int64_t>(dataType));
  text += kListKey;
  text += list;
  text += kTail;
  return text;
}

}  // namespace keelstone
