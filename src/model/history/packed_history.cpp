#include "model/history/packed_history.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "model/history/history_layout.h"
#include "model/history/history_scan.h"
#include "model/history/numeric_traits.h"
#include "model/history/own_text.h"

namespace keelstone {

namespace {

// Nothing in the bytes is aligned.
template <class T>
void Put(char*& at, T value) {
  std::memcpy(at, &value, sizeof value);
  at += sizeof value;
}

template <class T>
T Get(const char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

/// Whether the text of a number gives it back.
template <class T>
bool IsPlain(T value) {
  if constexpr (std::is_floating_point_v<T>) return value != T(0) || !std::signbit(value);
  return true;
}

}  // namespace

/// What comes first in the bytes of points.
struct PackedHistory::Head {
  std::int64_t base = 0;  // of numbers: the earliest time
  std::uint32_t count = 0;
  bool isWide = false;  // times do not fit 32 bits behind the earliest
};

/// Behind the head all values, then all times.
template <class T>
struct PackedHistory::NumberFormat {
  using History = typename NumericTraits<T>::History;
  using Point = KSDataPoint<T>;
  using Points = std::vector<Point>;

  static std::size_t TimeSize(const Head& head) {
    return head.isWide ? sizeof(std::int64_t) : sizeof(std::uint32_t);
  }

  /// False where the text of the points would give others.
  static bool Measure(const Points& points, Head& head, std::size_t& size) {
    std::int64_t latest = std::numeric_limits<std::int64_t>::min();
    head.base = std::numeric_limits<std::int64_t>::max();
    for (const Point& point : points) {
      if (!IsPlain(point.value)) return false;
      head.base = std::min(head.base, point.time);
      latest = std::max(latest, point.time);
    }
    const std::uint64_t span =
        static_cast<std::uint64_t>(latest) - static_cast<std::uint64_t>(head.base);
    head.isWide = span > std::numeric_limits<std::uint32_t>::max();
    size = points.size() * (sizeof(T) + TimeSize(head));
    return true;
  }

  static void Write(const Points& points, const Head& head, char* at) {
    for (const Point& point : points) Put(at, point.value);
    for (const Point& point : points) {
      if (head.isWide) {
        Put(at, point.time);
      } else {
        Put(at, static_cast<std::uint32_t>(static_cast<std::uint64_t>(point.time) -
                                           static_cast<std::uint64_t>(head.base)));
      }
    }
  }

  static std::int64_t TimeAt(const Head& head, const char* body, std::size_t i) {
    const char* const times = body + head.count * sizeof(T);
    if (head.isWide) return Get<std::int64_t>(times + i * sizeof(std::int64_t));
    return head.base + Get<std::uint32_t>(times + i * sizeof(std::uint32_t));
  }

  static void Read(const Head& head, const char* body, Points& points) {
    for (std::size_t i = 0; i < head.count; ++i) {
      points.emplace_back(TimeAt(head, body, i), Get<T>(body + i * sizeof(T)));
    }
  }
};

/// Behind the head, point by point: time, length, text.
struct PackedHistory::StringFormat {
  using History = StrHisotryData;
  using Point = KSDataPoint<std::string>;
  using Points = std::vector<Point>;
  static constexpr std::size_t kPointHead = sizeof(std::int64_t) + sizeof(std::uint32_t);

  static bool Measure(const Points& points, Head&, std::size_t& size) {
    for (const Point& point : points) {
      const bool fits = point.value.size() <= std::numeric_limits<std::uint32_t>::max();
      if (!fits || !StandsAsItIs(point.value)) return false;
      size += kPointHead + point.value.size();
    }
    return true;
  }

  static void Write(const Points& points, const Head&, char* at) {
    for (const Point& point : points) {
      Put(at, point.time);
      Put(at, static_cast<std::uint32_t>(point.value.size()));
      at = std::copy(point.value.begin(), point.value.end(), at);
    }
  }

  static void Read(const Head& head, const char* body, Points& points) {
    for (std::size_t i = 0; i < head.count; ++i) {
      const auto time = Get<std::int64_t>(body);
      const auto size = Get<std::uint32_t>(body + sizeof time);
      body += kPointHead;
      points.emplace_back(time, std::string(body, size));
      body += size;
    }
  }
};

PackedHistory::PackedHistory(Kind kind, std::size_t size) : kind_(kind) {
  if (size > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  data_.reset(new char[size]);
  size_ = static_cast<std::uint32_t>(size);
}

PackedHistory PackedHistory::OfText(std::string_view text) {
  PackedHistory packed(Kind::kText, text.size());
  std::copy(text.begin(), text.end(), packed.data_.get());
  return packed;
}

PackedHistory::Kind PackedHistory::KindOf(EnumKSDataType dataType) noexcept {
  switch (dataType) {
    case KSDataInt64:
      return Kind::kInt64;
    case KSDataFloat:
      return Kind::kFloat;
    case KSDataDouble:
      return Kind::kDouble;
    case KSDataString:
      return Kind::kString;
    default:
      return Kind::kText;
  }
}

/// Calls `action` with the format of a kind of points; its empty answer for other kinds.
template <class Do>
auto PackedHistory::WithFormat(Kind kind, const Do& action) const {
  switch (kind) {
    case Kind::kInt64:
      return action(NumberFormat<std::int64_t>());
    case Kind::kFloat:
      return action(NumberFormat<float>());
    case Kind::kDouble:
      return action(NumberFormat<double>());
    case Kind::kString:
      return action(StringFormat());
    default:
      return decltype(action(StringFormat())){};
  }
}

template <class Format>
PackedHistory PackedHistory::OfPoints(const HistoryDataBase& history, Kind kind) {
  const auto& points = static_cast<const typename Format::History&>(history).points();
  Head head;
  std::size_t size = 0;
  if (points.empty() || points.size() > std::numeric_limits<std::uint32_t>::max() ||
      !Format::Measure(points, head, size)) {
    return {};
  }
  head.count = static_cast<std::uint32_t>(points.size());
  PackedHistory packed(kind, sizeof head + size);
  std::memcpy(packed.data_.get(), &head, sizeof head);
  Format::Write(points, head, packed.data_.get() + sizeof head);
  packed.newest_ = points.back().time;
  return packed;
}

PackedHistory PackedHistory::Of(const HistoryDataBase& history) {
  const Kind kind = KindOf(history.dataType);
  PackedHistory packed = PackedHistory().WithFormat(kind, [&](const auto& format) {
    return OfPoints<std::decay_t<decltype(format)>>(history, kind);
  });
  return packed.IsThere() ? std::move(packed) : OfText(history.ToString());
}

template <class Format>
void PackedHistory::Fill(typename Format::History& history) const {
  const auto head = Get<Head>(data_.get());
  auto points = history.ReleasePoints();
  points.clear();
  points.reserve(head.count + std::size_t{1});  // mostly one more joins
  Format::Read(head, data_.get() + sizeof head, points);
  history.TakePoints(std::move(points));
}

std::optional<std::string_view> PackedHistory::Text() const noexcept {
  if (kind_ != Kind::kText) return std::nullopt;
  return std::string_view(data_.get(), size_);
}

std::string PackedHistory::ToText() const {
  if (kind_ == Kind::kNone) return {};
  if (kind_ == Kind::kText) return std::string(*Text());
  return WithFormat(kind_, [this](const auto& format) {
    using Format = std::decay_t<decltype(format)>;
    typename Format::History history;
    Fill<Format>(history);
    return history.ToString();
  });
}

/// Empty for a text that is not to the last byte what a history would write of itself.
std::shared_ptr<HistoryDataBase> PackedHistory::ReadOwnText(std::string_view text) {
  for (const EnumKSDataType dataType : {KSDataInt64, KSDataFloat, KSDataDouble, KSDataString}) {
    if (!HistoryLayout(text).SkipHead(dataType)) continue;
    if (!NewestTimeOfOwnText(dataType, text)) return nullptr;
    auto history = PackedHistory().WithFormat(
        KindOf(dataType), [](const auto& format) -> std::shared_ptr<HistoryDataBase> {
          return std::make_shared<typename std::decay_t<decltype(format)>::History>();
        });
    return history->FromLastingText(text) ? history : nullptr;
  }
  return nullptr;
}

void PackedHistory::Pack() {
  if (kind_ != Kind::kText) return;
  const auto history = ReadOwnText(*Text());
  if (!history) return;
  PackedHistory packed = Of(*history);
  if (packed.kind_ != Kind::kText) *this = std::move(packed);
}

std::shared_ptr<HistoryDataBase> PackedHistory::Open(EnumKSDataType dataType) const {
  std::shared_ptr<HistoryDataBase> none;
  return OpenInto(none, dataType);
}

std::shared_ptr<HistoryDataBase> PackedHistory::OpenInto(std::shared_ptr<HistoryDataBase>& spare,
                                                         EnumKSDataType dataType) const {
  if (kind_ == Kind::kText || kind_ != KindOf(dataType)) return nullptr;
  return WithFormat(kind_, [&](const auto& format) -> std::shared_ptr<HistoryDataBase> {
    using Format = std::decay_t<decltype(format)>;
    using History = typename Format::History;
    if (!spare || spare.use_count() > 1 || spare->dataType != dataType) {
      spare = std::make_shared<History>();
    }
    Fill<Format>(static_cast<History&>(*spare));
    return spare;
  });
}

std::optional<std::int64_t> PackedHistory::NewestTime(EnumKSDataType dataType) const {
  if (kind_ == Kind::kText) return NewestTimeOfOwnText(dataType, *Text());
  if (kind_ != KindOf(dataType)) return std::nullopt;
  return GuessNewest();
}

std::optional<std::int64_t> PackedHistory::GuessNewest() const {
  if (kind_ == Kind::kText) return GuessNewestTime(*Text());
  return kind_ == Kind::kNone ? std::nullopt : std::optional(newest_);
}

}  // namespace keelstone
