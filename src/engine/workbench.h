#ifndef KEELSTONE_ENGINE_WORKBENCH_H
#define KEELSTONE_ENGINE_WORKBENCH_H

#include <memory>

#include "keelstone/data_feature.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"
#include "model/history/packed_history.h"

namespace keelstone {

/// Objects that the values of one run use one after the other, so that none is made anew for
/// each. What is taken is anew when nobody holds the one before any longer. One thread.
class Workbench {
 public:
  /// A record as it is made.
  std::shared_ptr<RuleDefinitionData> Record();
  /// PackedHistory::Open.
  std::shared_ptr<HistoryDataBase> History(const PackedHistory& stored, EnumKSDataType dataType);
  /// The calculated feature of a history of this type, which must be a known one.
  std::shared_ptr<KSDataFeature> Feature(EnumKSDataType dataType,
                                         const std::shared_ptr<HistoryDataBase>& history);

 private:
  template <class T>
  std::shared_ptr<KSDataFeature> NumberFeature(const std::shared_ptr<HistoryDataBase>& history);

  std::shared_ptr<RuleDefinitionData> record_;
  std::shared_ptr<HistoryDataBase> history_;
  std::shared_ptr<KSDataFeature> feature_;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_WORKBENCH_H
