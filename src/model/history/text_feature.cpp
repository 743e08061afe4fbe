#include "keelstone/text_feature.h"

namespace keelstone {

template <class Point>
bool TextFeature<Point>::Calculate(const std::shared_ptr<HistoryDataBase>& history) {
  const auto* const texts = dynamic_cast<const PointHistory<Point>*>(history.get());
  if (texts == nullptr) return false;
  const std::vector<Point>& points = texts->points();
  count = static_cast<std::int32_t>(points.size());
  if (count == 0) return true;

  auto slot = valueCounts.insert_or_assign(points.front().value, 1).first;
  std::int32_t changes = 0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    if (points[i].value != points[i - 1].value) {
      ++changes;
      slot = valueCounts.try_emplace(points[i].value, 0).first;
    }
    ++slot->second;
  }
  if (count > 1) changeFrequency = static_cast<float>(changes) / static_cast<float>(count - 1);
  return true;
}

template class TextFeature<KSDataPoint<std::string>>;
template class TextFeature<KSTableDataPoint>;

}  // namespace keelstone
