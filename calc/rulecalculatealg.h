#ifndef KEELSTONE_CALC_RULECALCULATEALG_H
#define KEELSTONE_CALC_RULECALCULATEALG_H

#include <memory>
#include <string>

#include "engine/ksrulerecords.h"
#include "model/irulebase.h"
#include "model/ksruleenums.h"
#include "platform/export.h"

namespace keelstone {

/// A family of learning algorithms. Stateless: any thread.
class KEELSTONE_EXPORT RuleCalculateAlgBase {
 public:
  explicit RuleCalculateAlgBase(EnumAlgType type) : algType(type) {}
  virtual ~RuleCalculateAlgBase();

  /// The first rule of the family that accepts history and feature, with an empty
  /// parameter (the caller goes on with UpdateRule); empty when none fits.
  virtual std::shared_ptr<IRuleBase> CalculateRule(
      const std::shared_ptr<RuleDefinitionData>& ruleDefine,
      const std::shared_ptr<HistoryDataBase>& history,
      const std::shared_ptr<KSDataFeature>& feature, EnumKSDataType dataType,
      const std::string& domainId) = 0;

  /// A new, empty rule; empty when the pair has no class.
  std::shared_ptr<IRuleBase> GetRuleByType(EnumRuleType ruleType, EnumKSDataType dataType) const;

  const EnumAlgType algType;
};

/// Learns rules of numbers. Tries, in this order: equal (which also judges short
/// histories), increase, constant, range, enumeration, equal (full histories only).
class KEELSTONE_EXPORT NumicalRuleCalculateAlg final : public RuleCalculateAlgBase {
 public:
  NumicalRuleCalculateAlg() : RuleCalculateAlgBase(KSAlgNumerical) {}
  std::shared_ptr<IRuleBase> CalculateRule(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                           const std::shared_ptr<HistoryDataBase>& history,
                                           const std::shared_ptr<KSDataFeature>& feature,
                                           EnumKSDataType dataType,
                                           const std::string& domainId) override;
};

}  // namespace keelstone

#endif  // KEELSTONE_CALC_RULECALCULATEALG_H
