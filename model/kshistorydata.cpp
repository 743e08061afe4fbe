#include "model/kshistorydata.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

#include "model/numeric_traits.h"
#include "platform/json_reader.h"
#include "platform/json_value.h"

namespace keelstone {

namespace {

constexpr std::string_view kHeadKey = "{\"dataType\":";
constexpr std::string_view kListKey = ",\"dataList\":[";
constexpr std::string_view kTimeKey = "{\"liveTime\":";
constexpr std::string_view kValueKey = ",\"dataValue\":";
constexpr std::string_view kTail = "]}";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Reads the library's own layout from the front of a text. Whatever it does not know to
/// be that layout it refuses, and the JSON reader judges instead.
class OwnLayout {
 public:
  explicit OwnLayout(std::string_view text) : next_(text.data()), end_(next_ + text.size()) {}

  const char* position() const { return next_; }
  bool AtEnd() const { return next_ == end_; }

  bool Skip(std::string_view literal) {
    if (static_cast<std::size_t>(end_ - next_) < literal.size()) return false;
    if (std::memcmp(next_, literal.data(), literal.size()) != 0) return false;
    next_ += literal.size();
    return true;
  }
  bool Skip(char c) {
    if (next_ == end_ || *next_ != c) return false;
    ++next_;
    return true;
  }

  /// An integer of at most 18 digits without leading zeros; "-0" is left to the reader.
  bool Read(std::int64_t& value) {
    const char* digit = next_;
    const bool negative = digit != end_ && *digit == '-';
    if (negative) ++digit;
    const char* const first = digit;
    std::int64_t number = 0;
    while (digit != end_ && IsDigit(*digit) && digit - first < 18) {
      number = number * 10 + (*digit++ - '0');
    }
    if (digit == first || (digit != end_ && IsDigit(*digit))) return false;
    if (*first == '0' && (digit - first > 1 || negative)) return false;
    value = negative ? -number : number;
    next_ = digit;
    return true;
  }

  bool Read(double& value) {
    const char* const after = EndOfReal();
    if (after == nullptr) return false;
    const std::from_chars_result read = std::from_chars(next_, after, value);
    if (read.ec != std::errc() || read.ptr != after) return false;
    next_ = after;
    return true;
  }

  bool Read(float& value) {
    double wide = 0.0;
    const char* const before = next_;
    if (!Read(wide)) return false;
    value = NarrowToFloat(wide);
    if (std::isfinite(value)) return true;
    next_ = before;
    return false;
  }

 private:
  const char* SkipDigits(const char* c) const {
    while (c != end_ && IsDigit(*c)) ++c;
    return c;
  }

  /// The end of a number in JSON's grammar that has a fraction or an exponent; nullptr
  /// for all else.
  const char* EndOfReal() const {
    const char* c = next_;
    if (c != end_ && *c == '-') ++c;
    const char* const whole = c;
    c = SkipDigits(c);
    if (c == whole || (*whole == '0' && c - whole > 1) || c == end_) return nullptr;
    const char* const fraction = c;
    if (*c == '.') {
      const char* const first = ++c;
      c = SkipDigits(c);
      if (c == first) return nullptr;
    }
    if (c != end_ && (*c == 'e' || *c == 'E')) {
      ++c;
      if (c != end_ && (*c == '+' || *c == '-')) ++c;
      const char* const first = c;
      c = SkipDigits(c);
      if (c == first) return nullptr;
    }
    return c == fraction ? nullptr : c;
  }

  const char* next_;
  const char* end_;
};

template <class T>
void AppendElement(std::string& text, const KSDataPoint<T>& point) {
  text += kTimeKey;
  AppendNumber(text, point.time);
  text += kValueKey;
  NumericTraits<T>::Append(text, point.value);
  text += '}';
}

/// The library's layout around the list of points.
std::string HistoryText(EnumKSDataType dataType, std::string_view list) {
  std::string text;
  text.reserve(kHeadKey.size() + 12 + kListKey.size() + list.size() + kTail.size());
  text += kHeadKey;
  AppendNumber(text, static_cast<std::int64_t>(dataType));
  text += kListKey;
  text += list;
  text += kTail;
  return text;
}

}  // namespace

HistoryDataBase::~HistoryDataBase() = default;
bool HistoryDataBase::FromString(const std::string&) { return false; }
std::string HistoryDataBase::ToString() const { return {}; }
std::int32_t HistoryDataBase::GetDataCount() const { return 0; }
void HistoryDataBase::AddData(const std::shared_ptr<KSDataBase>&, std::int32_t) {}
void HistoryDataBase::GetDataValue(const std::shared_ptr<KSDataBase>&, std::string&) const {}
std::int64_t HistoryDataBase::GetLastTime() const { return 0; }

void HistoryListText::DropFront(std::size_t count) {
  for (; count > 0 && size() > 0; --count) {
    const std::size_t end = text_.find('}', begin_);
    if (end == std::string::npos) return Clear();
    begin_ = std::min(end + 2, text_.size());  // the brace and the comma after it
  }
}

std::string& HistoryListText::NextElement() {
  if (size() == 0) {
    Clear();
  } else {
    text_ += ',';
  }
  return text_;
}

void HistoryListText::Clear() noexcept {
  text_.clear();
  begin_ = 0;
}

template <class T>
bool NumercialHistoryData<T>::FromOwnText(std::string_view text) {
  OwnLayout layout(text);
  std::int64_t type = 0;
  if (!layout.Skip(kHeadKey) || !layout.Read(type) || type != dataType) return false;
  if (!layout.Skip(kListKey)) return false;

  const std::size_t before = points_.size();
  const char* const listBegin = layout.position();
  // An element has 27 characters at least besides its numbers.
  points_.reserve(before + text.size() / 32);
  bool sound = true;
  do {
    KSDataPoint<T> point;
    sound = layout.Skip(kTimeKey) && layout.Read(point.time) && layout.Skip(kValueKey) &&
            layout.Read(point.value) && layout.Skip('}');
    if (sound) points_.push_back(point);
  } while (sound && layout.Skip(','));
  const char* const listEnd = layout.position();
  if (!sound || !layout.Skip(kTail) || !layout.AtEnd()) {
    points_.resize(before);
    return false;
  }
  if (hasListText_) {
    listText_.NextElement().append(listBegin, static_cast<std::size_t>(listEnd - listBegin));
  }
  return true;
}

template <class T>
bool NumercialHistoryData<T>::FromString(const std::string& text) {
  if (FromOwnText(text)) return true;
  JsonValue document;
  if (!JsonReader::Parse(text, document)) return false;
  try {
    const JsonValue& constant = document;
    if (constant["dataType"].asInt() != dataType) return false;
    const JsonValue& list = constant["dataList"];
    if (!list.isArray()) return false;
    hasListText_ = false;
    listText_.Clear();
    for (const JsonValue& element : list) {
      const std::int64_t time = element["liveTime"].asTime();
      points_.emplace_back(time, NumericTraits<T>::Read(element["dataValue"]));
    }
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

template <class T>
std::string NumercialHistoryData<T>::ToString() const {
  if (points_.empty()) return {};
  if (hasListText_) return HistoryText(dataType, listText_.view());
  HistoryListText list;
  for (const KSDataPoint<T>& point : points_) AppendElement(list.NextElement(), point);
  return HistoryText(dataType, list.view());
}

template <class T>
std::int32_t NumercialHistoryData<T>::GetDataCount() const {
  return static_cast<std::int32_t>(points_.size());
}

template <class T>
void NumercialHistoryData<T>::AddData(const std::shared_ptr<KSDataBase>& point,
                                      std::int32_t maxCount) {
  const auto* const number = dynamic_cast<const KSDataPoint<T>*>(point.get());
  if (number == nullptr) return;
  const std::size_t kept = maxCount < 1 ? 0 : static_cast<std::size_t>(maxCount) - 1;
  if (points_.size() > kept) {
    const std::size_t dropped = points_.size() - kept;
    points_.erase(points_.begin(), points_.begin() + static_cast<std::ptrdiff_t>(dropped));
    if (hasListText_) listText_.DropFront(dropped);
  }
  points_.push_back(*number);
  if (hasListText_) AppendElement(listText_.NextElement(), *number);
}

template <class T>
void NumercialHistoryData<T>::GetDataValue(const std::shared_ptr<KSDataBase>& point,
                                           std::string& text) const {
  const auto* const number = dynamic_cast<const KSDataPoint<T>*>(point.get());
  if (number == nullptr) return;
  text.clear();
  NumericTraits<T>::Append(text, number->value);
}

template <class T>
std::int64_t NumercialHistoryData<T>::GetLastTime() const {
  return points_.empty() ? 0 : points_.back().time;
}

template class NumercialHistoryData<std::int64_t>;
template class NumercialHistoryData<float>;
template class NumercialHistoryData<double>;

}  // namespace keelstone
