#ifndef KEELSTONE_MODEL_HISTORY_HISTORY_ELEMENT_H
#define KEELSTONE_MODEL_HISTORY_HISTORY_ELEMENT_H

#include <string>
#include <string_view>

#include "keelstone/data_point.h"
#include "keelstone/json_value.h"
#include "keelstone/table_data_point.h"
#include "model/history/history_layout.h"
#include "model/history/numeric_traits.h"

/// One element of a history's list: how each type of point is written and read.
namespace keelstone {

using TextPoint = KSDataPoint<std::string>;

// Writing.

template <class T>
void AppendElement(std::string& text, const KSDataPoint<T>& point) {
  text += kHistoryTimeKey;
  AppendNumber(text, point.time);
  text += kHistoryValueKey;
  NumericTraits<T>::Append(text, point.value);
  text += '}';
}
void AppendElement(std::string& text, const TextPoint& point);
void AppendElement(std::string& text, const KSTableDataPoint& point);

// Reading the library's own layout; false when the element does not keep to it.

template <class T>
bool ReadElement(HistoryLayout& layout, KSDataPoint<T>& point) {
  return layout.Skip(kHistoryTimeKey) && layout.Read(point.time) && layout.Skip(kHistoryValueKey) &&
         layout.Read(point.value) && layout.Skip('}');
}
bool ReadElement(HistoryLayout& layout, TextPoint& point);

/// Reads the elements of one list in the library's own layout, one after the other.
template <class Point>
class ElementReader {
 public:
  bool Read(HistoryLayout& layout, Point& point) { return ReadElement(layout, point); }
};

/// Tables seldom change: what repeats the element before, apart from its time, is compared
/// with that one's text instead of being read, and shares its content.
template <>
class ElementReader<KSTableDataPoint> {
 public:
  bool Read(HistoryLayout& layout, KSTableDataPoint& point);

 private:
  KSTableDataPoint last_;
  std::string_view lastText_;  // without its time; empty before the first element
};

// Reading any JSON; a refused conversion throws JsonError.

template <class T>
void ReadElement(const JsonValue& element, KSDataPoint<T>& point) {
  point.time = element["liveTime"].asTime();
  point.value = NumericTraits<T>::Read(element["dataValue"]);
}
void ReadElement(const JsonValue& element, TextPoint& point);
void ReadElement(const JsonValue& element, KSTableDataPoint& point);

// The value of a point as text.

template <class T>
std::string ValueText(const KSDataPoint<T>& point) {
  std::string text;
  NumericTraits<T>::Append(text, point.value);
  return text;
}
inline std::string ValueText(const TextPoint& point) { return point.value; }

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_HISTORY_ELEMENT_H
