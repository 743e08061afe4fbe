#include "intake/stored_history.h"

#include <bit>
#include <functional>
#include <limits>
#include <string_view>
#include <variant>

#include "engine/typed_value.h"
#include "keelstone/algorithm_manager.h"

namespace keelstone {

namespace {

// 0.0 is added because -0.0 equals 0.0 and has other bits.
std::uint64_t Identity(std::monostate) { return 0; }
std::uint64_t Identity(std::int64_t value) { return static_cast<std::uint64_t>(value); }
std::uint64_t Identity(float value) { return std::bit_cast<std::uint32_t>(value + 0.0F); }
std::uint64_t Identity(double value) { return std::bit_cast<std::uint64_t>(value + 0.0); }
std::uint64_t Identity(std::string_view text) { return std::hash<std::string_view>{}(text); }

template <class Point, class Take>
void Visit(const HistoryDataBase& history, Take take) {
  const auto* const own = dynamic_cast<const PointHistory<Point>*>(&history);
  if (own == nullptr) return;
  for (const Point& point : own->points()) take(point);
}

template <class Take>
void VisitPoints(const HistoryDataBase& history, Take take) {
  switch (history.dataType) {
    case KSDataInt64:
      return Visit<KSDataPoint<std::int64_t>>(history, take);
    case KSDataFloat:
      return Visit<KSDataPoint<float>>(history, take);
    case KSDataDouble:
      return Visit<KSDataPoint<double>>(history, take);
    case KSDataString:
      return Visit<KSDataPoint<std::string>>(history, take);
    case KSDataTable:
      return Visit<KSTableDataPoint>(history, take);
    default:
      return;
  }
}

}  // namespace

std::uint64_t IdentityOf(const VarInfo& variable) {
  return std::visit([](auto value) { return Identity(value); }, TypedValue(variable).content());
}

std::optional<StoredHistory> StoredHistory::Read(EnumKSDataType dataType, const std::string& text) {
  StoredHistory stored;
  stored.history_ = MakeHistory(dataType);
  if (!stored.history_ || !stored.history_->FromString(text)) return std::nullopt;
  VisitPoints(*stored.history_, [&](const auto& point) {
    stored.points_.push_back({point.time, Identity(point.value)});
  });
  if (stored.points_.empty()) return std::nullopt;
  return stored;
}

std::string StoredHistory::TextUntil(std::int64_t time) const {
  const std::shared_ptr<HistoryDataBase> kept = MakeHistory(history_->dataType);
  VisitPoints(*history_, [&]<class Point>(const Point& point) {
    if (point.time > time) return;
    kept->AddData(std::make_shared<Point>(point), std::numeric_limits<std::int32_t>::max());
  });
  return kept->ToString();
}

}  // namespace keelstone
