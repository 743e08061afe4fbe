#ifndef KEELSTONE_ENGINE_EXPLAINER_H
#define KEELSTONE_ENGINE_EXPLAINER_H

#include <cstdint>
#include <memory>
#include <vector>

#include "keelstone/data_point.h"
#include "keelstone/explanation.h"
#include "keelstone/rule_base.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// Keeps the verdict of the value that was evaluated last, and an explanation for every
/// alert. There is none in an evaluation that is not to explain itself. One thread.
class Explainer {
 public:
  /// How a value came to its verdict.
  struct Case {
    const VarInfo& variable;
    const std::shared_ptr<KSDataBase>& point;
    std::int64_t time;  // of the value, seconds since the epoch
    const IRuleBase& rule;
    std::int32_t generateType;
    bool isLearnedNow;  // the rule came to be with this very value
    bool isInHistory;   // the value is the newest of the rule's history already
  };

  /// A further value comes.
  void Begin() { verdict_ = kVerdictNone; }
  /// The rule has judged the value, if it can judge it at all.
  void Fits(const Case& judged);
  /// To be called before the alert is reported, so that there is one explanation an alert
  /// whatever goes wrong.
  void Breaks(const Case& judged);

  EnumVerdict verdict() const { return verdict_; }
  const std::vector<KSAlertExplanation>& explanations() const { return explanations_; }

 private:
  EnumVerdict verdict_ = kVerdictNone;
  std::vector<KSAlertExplanation> explanations_;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_EXPLAINER_H
