#ifndef KEELSTONE_TEXT_FEATURE_H
#define KEELSTONE_TEXT_FEATURE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "keelstone/data_feature.h"
#include "keelstone/export.h"
#include "keelstone/history_data.h"

namespace keelstone {

/// Statistics of texts: strings by themselves, tables by their digests. Compared byte for
/// byte.
template <class Point>
class KEELSTONE_EXPORT TextFeature final : public KSDataFeature {
 public:
  bool Calculate(const std::shared_ptr<HistoryDataBase>& history) override;

  float changeFrequency = 0.0F;  // changes / (count - 1), in single precision
  std::int32_t count = 0;
  std::map<std::string, std::int32_t> valueCounts;
};

extern template class TextFeature<KSDataPoint<std::string>>;
extern template class TextFeature<KSTableDataPoint>;

/// Statistics of strings.
using KSStringDataFeature = TextFeature<KSDataPoint<std::string>>;
/// Statistics of tables, by their digests.
using KSTableDataFeature = TextFeature<KSTableDataPoint>;

}  // namespace keelstone

#endif  // KEELSTONE_TEXT_FEATURE_H
