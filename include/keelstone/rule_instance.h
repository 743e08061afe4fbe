#ifndef KEELSTONE_RULE_INSTANCE_H
#define KEELSTONE_RULE_INSTANCE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "keelstone/explanation.h"
#include "keelstone/export.h"
#include "keelstone/rule_records.h"
#include "keelstone/update_result.h"

namespace keelstone {

class ResidentUnit;

/// The time of a run in seconds since the epoch, beyond 32 bits too.
struct EvaluationTime {
  std::int64_t seconds = 0;
};

/// Why ProcessVariable refused a value.
enum EnumRefusal : std::int32_t {
  kRefusalNone = 0,        // it was not refused
  kRefusalUnreadable = 1,  // what is stored of the device could not be read
  kRefusalUndefined = 2,   // the variable has no enabled definition
  kRefusalType = 3,        // its type code is not that of the definition
  kRefusalNoValue = 4,     // its text gives no value of its type
  kRefusalFailure = 5,     // the evaluation itself failed; the log says why
};

/// The evaluation of one parser run on one device. A host makes one, asks IsInBlockTime
/// (and then calls SetOnlyUpdateKSValue), loads rules and histories, hands every variable
/// to ProcessVariable, takes the results and calls SerializeLocalDB. Used by one thread;
/// any number of instances run side by side, also for one unit.
class KEELSTONE_EXPORT KSRuleInstance {
 public:
  /// `evaluationTime` in seconds since the epoch is the time of every value of the run.
  /// `reserved` is kept and not read. An on-demand run checks but learns nothing.
  KSRuleInstance(const std::string& variableSource, const std::string& nodeId,
                 const std::string& deviceName, const std::string& nodePathSchema,
                 const std::string& structureId, const std::string& variableParam,
                 const std::string& domainId, const std::string& reserved,
                 std::int32_t evaluationTime, bool onDemandTask);
  /// The same for times that 32 bits do not hold.
  KSRuleInstance(const std::string& variableSource, const std::string& nodeId,
                 const std::string& deviceName, const std::string& nodePathSchema,
                 const std::string& structureId, const std::string& variableParam,
                 const std::string& domainId, const std::string& reserved,
                 EvaluationTime evaluationTime, bool onDemandTask);
  ~KSRuleInstance();
  KSRuleInstance(const KSRuleInstance&) = delete;
  KSRuleInstance& operator=(const KSRuleInstance&) = delete;

  /// Whether the device is in a block period now (by the system's clock; both ends of a
  /// period belong to it).
  bool IsInBlockTime();
  /// Whether any variable of this source has a rule definition.
  bool IsDefineRule();
  /// Load the device's rules and histories from the domain's databases; false when the
  /// domain has no data manager. A database that cannot be read (locked for long, damaged)
  /// is logged, and the instance then refuses every value rather than learn anew over what
  /// is stored.
  bool InitCacheData();
  bool InitHistoryData();
  /// Hand over what InitCacheData and InitHistoryData would have loaded, for this device,
  /// source and parameter (KSDataCacheQueue loads units in bulk): those then load nothing
  /// and answer true. Call them before the first variable. The definitions are this
  /// instance's from here on and change with the evaluation; a record that others hold too
  /// is shared with them like any other, under DefinitionLock. What is handed over must be
  /// what the database holds: rows that wait to be written come before it.
  void SetCacheData(DevParserRule rules);
  void SetHistoryData(DevParserHistory histories);
  /// For ResidentStore, in the place of both: works on a unit that stays in memory, which
  /// SerializeLocalDB then changes instead of handing rows over. Before anything else; the
  /// instance lets go of the unit when it ends.
  void Attach(std::shared_ptr<ResidentUnit> unit);
  /// Whether a rule of this variable was loaded, on any interface.
  bool IsVarDefineRule(const std::string& variableName);

  /// Evaluates one value: false when the variable has no enabled definition, its type
  /// code is not that of the definition, or the value text gives no value (each logged).
  /// A variable whose stored history is refused is left alone, logged once a run.
  bool ProcessVariable(const VarInfo& variable);

  /// The results so far; shared, filled further by every ProcessVariable.
  std::shared_ptr<KSRuleUpdateResultData> GetUpdateResultData() const;
  /// Hands the changed rules and histories to the write-behind cache. Call it once, at
  /// the end: a further call hands the same rows over again, but for those whose variables
  /// have got newer rows since, from this instance or another.
  void SerializeLocalDB();

  /// Stops learning for the rest of the run. Alerts are still raised, and the golden values
  /// of prescribed rules still follow.
  void SetOnlyUpdateKSValue();
  bool IsOndemandTask() const;

  /// Whether alerts are explained and verdicts kept from here on; what was explained before
  /// is dropped. Off at first: nothing of it costs anything then.
  void SetExplain(bool on);
  /// One explanation an alert since SetExplain(true), in the order of GetKSAlertResults;
  /// the next ProcessVariable may move them. None while nothing is explained.
  const std::vector<KSAlertExplanation>& GetExplanations() const;
  /// What became of the value that was handed over last; kVerdictNone while nothing is
  /// explained.
  EnumVerdict GetLastVerdict() const;
  /// Why the value that was handed over last was refused.
  EnumRefusal GetLastRefusal() const;

  /// The history text that was loaded of a variable, or nullptr; until the next call of the
  /// instance.
  const std::string* GetLoadedHistory(const std::string& interfaceValue,
                                      const std::string& variableName) const;
  /// About when the newest value of that text was, without reading it where that can be told;
  /// nothing where it cannot, and without a text.
  std::optional<std::int64_t> GuessNewestTime(const std::string& interfaceValue,
                                              const std::string& variableName) const;
  /// Puts a history text in the place of the loaded one, for the evaluation and for the
  /// database. Before the variable is processed.
  void ReplaceHistory(const std::string& interfaceValue, const std::string& variableName,
                      std::string history);

 private:
  class Evaluation;
  std::unique_ptr<Evaluation> evaluation_;
};

}  // namespace keelstone

#endif  // KEELSTONE_RULE_INSTANCE_H
