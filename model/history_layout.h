#ifndef KEELSTONE_MODEL_HISTORY_LAYOUT_H
#define KEELSTONE_MODEL_HISTORY_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "model/ksruleenums.h"

/// The layout in which the library itself writes history texts. What keeps to it is read
/// without the JSON reader, and its list is taken over as it stands.
namespace keelstone {

inline constexpr std::string_view kHistoryTimeKey = "{\"liveTime\":";
inline constexpr std::string_view kHistoryValueKey = ",\"dataValue\":";

/// Reads the library's own layout from the front of a text. Whatever it does not know to
/// be that layout it refuses, and the JSON reader judges instead.
class HistoryLayout {
 public:
  explicit HistoryLayout(std::string_view text) : next_(text.data()), end_(next_ + text.size()) {}

  const char* position() const { return next_; }
  bool AtEnd() const { return next_ == end_; }

  bool Skip(std::string_view literal);
  bool Skip(char c);
  /// What stands before the list; false also when the data type is another.
  bool SkipHead(EnumKSDataType dataType);
  /// What stands after the list, and the end of the text.
  bool SkipTail();

  /// An integer of at most 18 digits without leading zeros; "-0" is left to the reader.
  bool Read(std::int64_t& value);
  /// A number in JSON's grammar that has a fraction or an exponent.
  bool Read(double& value);
  bool Read(float& value);
  /// A string without escapes; the view is into the text.
  bool Read(std::string_view& value);
  bool Read(bool& value);

 private:
  const char* SkipDigits(const char* c) const;
  const char* EndOfReal() const;

  const char* next_;
  const char* end_;
};

/// The layout around the list of points.
std::string HistoryText(EnumKSDataType dataType, std::string_view list);

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_LAYOUT_H
