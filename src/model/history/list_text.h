#ifndef KEELSTONE_MODEL_HISTORY_LIST_TEXT_H
#define KEELSTONE_MODEL_HISTORY_LIST_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "keelstone/history_data.h"

/// What a history does with the text of its list.
namespace keelstone {

/// The part that is the history's own.
inline std::string_view OwnPart(const HistoryListText& list) noexcept {
  return std::string_view(list.text).substr(list.begin);
}
inline bool IsEmpty(const HistoryListText& list) noexcept {
  return list.lasting.empty() && list.begin == list.text.size();
}

/// Puts elements behind those that are there. Of a lasting text no copy is made where it is
/// the first.
void Append(HistoryListText& list, std::string_view elements, bool isLasting);
/// Drops the first `count` elements. Each ends with the only '}' outside its strings; the
/// strings that are keys hold none.
void DropFront(HistoryListText& list, std::size_t count, bool mayHoldStrings);
/// Starts a further element and answers the text to append it to.
std::string& NextElement(HistoryListText& list);
void Clear(HistoryListText& list) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_LIST_TEXT_H
