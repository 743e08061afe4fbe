#ifndef KEELSTONE_ALGORITHM_MANAGER_H
#define KEELSTONE_ALGORITHM_MANAGER_H

#include <memory>
#include <string>
#include <string_view>

#include "keelstone/calculate_algorithm.h"
#include "keelstone/export.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// The process-wide entrance to learning: makes rules, histories and features by type and
/// forwards to the algorithm of a family. Stateless after its construction, never
/// destroyed. Any thread.
class KEELSTONE_EXPORT KSRuleAlgMgr {
 public:
  static KSRuleAlgMgr* Instance();

  /// See RuleCalculateAlgBase::CalculateRule; empty for an unknown family.
  std::shared_ptr<IRuleBase> CalculateRule(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                           const std::shared_ptr<HistoryDataBase>& history,
                                           const std::shared_ptr<KSDataFeature>& feature,
                                           EnumKSDataType dataType, const std::string& domainId,
                                           EnumAlgType algType);
  /// A new, empty rule; empty for an unknown family and for a pair without a class.
  std::shared_ptr<IRuleBase> GetRuleByType(EnumAlgType algType, EnumRuleType ruleType,
                                           EnumKSDataType dataType);
  /// A new history of the type, read from its text, and its feature. Both stay untouched
  /// for an unknown type; a text that is refused leaves the history with what was read
  /// before the fault, and the feature untouched. (The name is part of the interface as it
  /// is spelled.)
  void GetHistoryAndDataFeatrue(const std::string& historyText, EnumKSDataType dataType,
                                std::shared_ptr<HistoryDataBase>& history,
                                std::shared_ptr<KSDataFeature>& feature);
  /// The same with a text that stays as it is and where it is as long as the history is
  /// used, and of which no copy is made.
  void ReadHistory(std::string_view lastingText, EnumKSDataType dataType,
                   std::shared_ptr<HistoryDataBase>& history,
                   std::shared_ptr<KSDataFeature>& feature);

 private:
  KSRuleAlgMgr();
  ~KSRuleAlgMgr() = delete;
  const std::shared_ptr<RuleCalculateAlgBase>& GetAlg(EnumAlgType type) const;

  const std::shared_ptr<RuleCalculateAlgBase> stringAlg_;
  const std::shared_ptr<RuleCalculateAlgBase> numericAlg_;
  const std::shared_ptr<RuleCalculateAlgBase> tableAlg_;
};

/// A new, empty history of a data type; empty for an unknown one.
KEELSTONE_EXPORT std::shared_ptr<HistoryDataBase> MakeHistory(EnumKSDataType dataType);
/// The calculated feature of a history of this data type, which must be a known one.
KEELSTONE_EXPORT std::shared_ptr<KSDataFeature> FeatureOf(
    EnumKSDataType dataType, const std::shared_ptr<HistoryDataBase>& history);

}  // namespace keelstone

#endif  // KEELSTONE_ALGORITHM_MANAGER_H
