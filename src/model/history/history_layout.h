#ifndef KEELSTONE_MODEL_HISTORY_HISTORY_LAYOUT_H
#define KEELSTONE_MODEL_HISTORY_HISTORY_LAYOUT_H

#include <string>
#include <string_view>

#include "keelstone/rule_enums.h"
#include "model/history/own_text.h"

/// The layout in which the library itself writes history texts. What keeps to it is read
/// without the JSON reader, and its list is taken over as it stands.
namespace keelstone {

inline constexpr std::string_view kHistoryTimeKey = "{\"liveTime\":";
inline constexpr std::string_view kHistoryValueKey = ",\"dataValue\":";

/// Reads a history text from its front.
class HistoryLayout : public OwnTextReader {
 public:
  using OwnTextReader::OwnTextReader;

  /// What stands before the list; false also when the data type is another.
  bool SkipHead(EnumKSDataType dataType);
  /// What stands after the list, and the end of the text.
  bool SkipTail();
};

/// Writes the layout around the list of points, given in two parts, into `text`, which keeps
/// its memory.
void WriteHistoryText(EnumKSDataType dataType, std::string_view front, std::string_view back,
                      std::string& text);

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_HISTORY_LAYOUT_H
