#ifndef KEELSTONE_CALCULATE_ALGORITHM_H
#define KEELSTONE_CALCULATE_ALGORITHM_H

#include <memory>
#include <string>

#include "keelstone/export.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// A family of learning algorithms; can be copied and assigned. It changes nothing of its
/// own: any thread.
class KEELSTONE_EXPORT RuleCalculateAlgBase {
 public:
  explicit RuleCalculateAlgBase(EnumAlgType type) : algType_(type) {}
  RuleCalculateAlgBase(const RuleCalculateAlgBase&) = default;
  RuleCalculateAlgBase& operator=(const RuleCalculateAlgBase&) = default;
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

  EnumAlgType algType() const { return algType_; }

 private:
  EnumAlgType algType_;
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

/// Learns rules of strings: equal, then enumeration.
class KEELSTONE_EXPORT StrRuleCalculateAlg final : public RuleCalculateAlgBase {
 public:
  StrRuleCalculateAlg() : RuleCalculateAlgBase(KSAlgString) {}
  std::shared_ptr<IRuleBase> CalculateRule(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                           const std::shared_ptr<HistoryDataBase>& history,
                                           const std::shared_ptr<KSDataFeature>& feature,
                                           EnumKSDataType dataType,
                                           const std::string& domainId) override;
};

/// Learns the rule of tables.
class KEELSTONE_EXPORT TableRuleCalculateAlg final : public RuleCalculateAlgBase {
 public:
  TableRuleCalculateAlg() : RuleCalculateAlgBase(KSAlgTable) {}
  std::shared_ptr<IRuleBase> CalculateRule(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                           const std::shared_ptr<HistoryDataBase>& history,
                                           const std::shared_ptr<KSDataFeature>& feature,
                                           EnumKSDataType dataType,
                                           const std::string& domainId) override;
};

}  // namespace keelstone

#endif  // KEELSTONE_CALCULATE_ALGORITHM_H
