#ifndef KEELSTONE_RULE_BASE_H
#define KEELSTONE_RULE_BASE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "keelstone/data_feature.h"
#include "keelstone/data_point.h"
#include "keelstone/export.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_data.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"

namespace keelstone {

class RuleSettings;

/// A rule: what one variable's values should be. It ties together the definition that it
/// was built from, the history of the values, statistics over them, and its parameter
/// with the golden value. Made empty by its type; usable after Init (a stored rule) or
/// after SetHistoryAndDataFeature and a CheckRule that accepts (a learned one).
///
/// An operation that finds what it needs missing, or a point of another type, answers
/// false and changes nothing. None throws. A rule shares what its pointers hold and
/// copies none of it. One thread at a time.
class KEELSTONE_EXPORT IRuleBase {
 public:
  explicit IRuleBase(EnumRuleType type) : ruleType_(type) {}
  IRuleBase(const IRuleBase& other);
  IRuleBase& operator=(const IRuleBase& other);
  virtual ~IRuleBase();

  /// Builds the rule from a stored definition. When the history text is refused the rule
  /// has no rule data and no definition afterwards.
  virtual void Init(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                    const std::string& domainId);
  /// The learning test: whether this kind fits history and feature under the domain's
  /// settings. True leaves rule data with an empty parameter.
  virtual bool CheckRule(const std::string& domainId);
  /// Learns the parameter and the golden value; true when it did so.
  virtual bool UpdateRule();
  /// True when the point becomes the golden value; it is then stored.
  virtual bool CheckGoldenValue(const std::shared_ptr<KSDataBase>& point);
  /// True when the point breaks the rule.
  virtual bool CheckAlert(const std::shared_ptr<KSDataBase>& point);
  virtual EnumRuleType GetType() const { return ruleType_; }
  /// Whether the engine learned the rule and relearns it: so without a definition, and
  /// when its generate type is 0.
  virtual bool IsDynamic() const;
  /// Same type and same parameter.
  virtual bool IsEqual(const IRuleBase* other) const;
  /// Lets a prescribed rule take the point as its parameter.
  virtual void UpdateParam(const std::shared_ptr<KSDataBase>& point);
  /// Chooses between the two learning tests of an equal rule.
  virtual void setIsLessCountCondition(bool lessCount);

  /// Init with a history text that is not the definition's own, and that stays as it is and
  /// where it is as long as the rule lives: no copy of it is made.
  virtual void InitWithHistory(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                               std::string_view history, const std::string& domainId);
  /// Init with a history that is there already, of the class that the rule's own would have;
  /// it is shared, and no text of the definition is read for it.
  virtual void InitWithPoints(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                              const std::shared_ptr<HistoryDataBase>& history,
                              const std::string& domainId);
  /// Whether CheckAlert judges the point at all: false when what it needs is missing, or
  /// the point is of another type.
  virtual bool Judges(const std::shared_ptr<KSDataBase>& point) const;
  /// CheckRule under settings that the caller has at hand.
  virtual bool CheckRuleWith(const RuleSettings& settings, const std::string& domainId);
  /// UpdateRule under settings that the caller has at hand; nullptr: the domain has none.
  virtual bool UpdateRuleWith(const RuleSettings* settings);

  void SetHistoryAndDataFeature(const std::shared_ptr<RuleDefinitionData>& ruleDefine,
                                const std::shared_ptr<HistoryDataBase>& history,
                                const std::shared_ptr<KSDataFeature>& feature);
  std::shared_ptr<KSRuleDataBase> GetRuleData() const { return ruleData_; }
  std::shared_ptr<HistoryDataBase> GetHistoryData() const;
  /// GetHistoryData without a share in it, for whoever adds nothing before the statistics
  /// were asked for, if they are to be.
  const std::shared_ptr<HistoryDataBase>& LentHistory() const { return history_; }
  /// The statistics over the history as it was when the rule was made of it, whatever joins
  /// later. They are calculated when somebody asks for them or could add to the history:
  /// most values are only checked.
  std::shared_ptr<KSDataFeature> GetDataFeature() const;
  /// Number of points; 0 without a history. (The name is part of the interface as it is
  /// spelled.)
  std::int32_t GetHisotryCount() const;
  /// The parameter text; "" without rule data.
  std::string GetRuleParam() const;
  /// The golden value as JSON text; "" without rule data.
  std::string GetRuleKSValue() const;
  /// Seconds since the epoch; 0 without rule data.
  std::int64_t GetRuleKSValueTime() const;
  /// Writes type, parameter and history text back into the definition and answers it;
  /// empty when there is none.
  std::shared_ptr<RuleDefinitionData> GetRuleDefineData();

 protected:
  std::shared_ptr<HistoryDataBase> history_;
  std::shared_ptr<KSRuleDataBase> ruleData_;
  mutable std::shared_ptr<KSDataFeature> feature_;
  mutable bool isFeatureDue_ = false;  // feature_ is yet to be made by MakeFeature
  std::shared_ptr<RuleDefinitionData> ruleDefine_;
  std::string domainId_;

 private:
  /// A calculated feature of the history; empty for a kind that has it made already.
  virtual std::shared_ptr<KSDataFeature> MakeFeature() const;

  EnumRuleType ruleType_;
};

}  // namespace keelstone

#endif  // KEELSTONE_RULE_BASE_H
