#ifndef KEELSTONE_BENCH_LEARNED_DEVICE_H
#define KEELSTONE_BENCH_LEARNED_DEVICE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_case.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_instance.h"
#include "keelstone/rule_records.h"

namespace keelstone::bench {

/// When a device's next run takes place.
enum class Moment {
  kHistoryYoung,  // within the live interval: values are checked only
  kHistoryOld,    // beyond it: rules are learned anew and the value is added
};

/// The only device of a domain with the default settings, stored and learned by the
/// library itself. Its variables are of one type, behave in the ways of kLearnedKinds (texts:
/// kLearnedTextKinds) at random and have histories of kHistoryPoints values; the next value breaks
/// no rule.
class LearnedDevice {
 public:
  struct Shape {
    EnumKSDataType dataType = KSDataInt64;
    std::size_t variables = 1000;
    bool hasRules = true;       // else there are histories only
    std::size_t laterRuns = 0;  // there are values for so many runs behind the next one
  };

  /// `domainId` is of no other device.
  LearnedDevice(const BenchSettings& settings, const std::string& domainId, const Shape& shape);

  const std::string& domainId() const noexcept { return domainId_; }
  const std::string& name() const noexcept { return name_; }
  /// The variables with their values in the next run.
  const std::vector<VarInfo>& variables() const noexcept { return variables_; }
  /// The stored texts, in the order of the variables.
  const std::vector<std::string>& histories() const noexcept { return histories_; }

  /// An instance for the next run that has not loaded anything.
  std::unique_ptr<KSRuleInstance> Instance(Moment moment) const;
  /// An instance for a run that many runs behind the next one, far enough apart that all values
  /// join their histories.
  std::unique_ptr<KSRuleInstance> LaterInstance(std::size_t run) const;
  /// Gives variables() their values in that run, which fit the rules' kinds.
  void TakeValues(std::size_t run, std::vector<VarInfo>& variables) const;
  /// The same with rules and histories loaded.
  std::unique_ptr<KSRuleInstance> Load(Moment moment) const;
  /// Makes the next run, as it is timed, and looks at what came of it: throws unless every
  /// variable was relearned and its value added (kHistoryOld), or left as it was
  /// (kHistoryYoung). What is pending changes with it.
  void Verify(Moment moment) const;

 private:
  void DefineVariables() const;
  void StoreHistories(std::uint64_t seed);
  void LearnRules() const;
  void ReadHistories();
  std::int32_t TimeOfNextRun(Moment moment) const;
  std::unique_ptr<KSRuleInstance> InstanceAt(std::int32_t time) const;
  void Require(bool holds, const char* what) const;
  void ProcessAll(KSRuleInstance& instance, const std::vector<VarInfo>& variables) const;

  std::string domainId_;
  std::string name_ = "core-1";
  Shape shape_;
  std::vector<VarInfo> variables_;
  std::vector<VarInfo> learning_;    // with their values in the run that learned the rules
  std::vector<EnumRuleType> kinds_;  // how each behaves
  std::vector<std::string> histories_;
  std::vector<std::vector<std::int64_t>> later_;  // a variable: its values in later runs
};

/// "int64", "float", "double" or "string".
const char* NameOfType(EnumKSDataType dataType);

/// The parser of all devices.
inline constexpr const char* kSource = "parser/interfaces";

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_LEARNED_DEVICE_H
