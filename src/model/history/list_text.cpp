#include "model/history/list_text.h"

#include <algorithm>

namespace keelstone {

namespace {

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

/// Where the first `count` elements of a list's text end, behind the comma too; what is
/// left of `count` when there are not so many.
std::size_t EndOfElements(std::string_view list, std::size_t& count, bool mayHoldStrings) {
  std::size_t at = 0;
  for (; count > 0 && at < list.size(); ++at) {
    if (!mayHoldStrings) at = std::min(list.find('}', at), list.size() - 1);
    if (mayHoldStrings && list[at] == '"') {
      // Strings may hold braces: hop over them.
      at = EndOfString(list, at + 1);
      if (at == list.npos) return list.size();
      --at;
    } else if (list[at] == '}') {
      --count;
    }
  }
  return at == 0 ? 0 : std::min(at + 1, list.size());
}

}  // namespace

void Append(HistoryListText& list, std::string_view elements, bool isLasting) {
  if (isLasting && IsEmpty(list)) {
    Clear(list);
    list.lasting = elements;
    return;
  }
  std::string& text = NextElement(list);
  text.reserve(text.size() + elements.size() + elements.size() / 16);  // most grow by a point
  text.append(elements);
}

void DropFront(HistoryListText& list, std::size_t count, bool mayHoldStrings) {
  list.lasting.remove_prefix(EndOfElements(list.lasting, count, mayHoldStrings));
  list.begin += EndOfElements(OwnPart(list), count, mayHoldStrings);
  // What comes first has no comma before it.
  if (list.lasting.empty() && OwnPart(list).starts_with(',')) ++list.begin;
  // Once more of it is dropped than kept, let it go.
  if (list.begin > list.text.size() - list.begin) {
    list.text.erase(0, list.begin);
    list.begin = 0;
  }
}

std::string& NextElement(HistoryListText& list) {
  if (IsEmpty(list)) {
    Clear(list);
  } else {
    list.text += ',';
  }
  return list.text;
}

void Clear(HistoryListText& list) noexcept {
  list.lasting = {};
  list.text.clear();
  list.begin = 0;
}

}  // namespace keelstone
