#ifndef KEELSTONE_BENCH_LEARNED_DOMAIN_H
#define KEELSTONE_BENCH_LEARNED_DOMAIN_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/work_root.h"
#include "engine/ksruleinstance.h"
#include "engine/ksrulerecords.h"
#include "model/ksruleenums.h"

namespace keelstone::bench {

inline constexpr std::size_t kVariablesPerDevice = 1000;
inline constexpr std::size_t kHistoryPoints = 30;

/// A device of a LearnedDomain: the variables of its next run and what is stored of them.
struct Device {
  std::string name;
  bool hasRules = false;               // else there are histories only
  std::vector<VarInfo> variables;      // the next value of each
  std::vector<EnumRuleType> kinds;     // how each behaves
  std::vector<std::string> histories;  // the stored texts, in the order of `variables`
};

/// When a device's next run takes place.
enum class Moment {
  kHistoryYoung,  // within the live interval: values are checked only
  kHistoryOld,    // beyond it: rules are learned anew and the value is added
};

/// A domain with the default settings whose devices all have values of one type, stored
/// and learned by the library itself. For each kind of rule, and for a mix of all, there
/// is a device with rules and one without; every history has 30 values.
class LearnedDomain {
 public:
  LearnedDomain(const WorkRoot& root, EnumKSDataType dataType, std::uint64_t seed);

  const std::string& id() const noexcept { return id_; }
  const std::vector<Device>& devices() const noexcept { return devices_; }

  /// An instance for the device's next run with rules and histories loaded.
  std::unique_ptr<KSRuleInstance> Load(const Device& device, Moment moment) const;
  /// Runs the device once more, as it is timed, and looks at what came of it: throws
  /// unless every variable was relearned and its value added (kHistoryOld), or left as it
  /// was (kHistoryYoung).
  void Verify(const Device& device, Moment moment) const;

 private:
  Device MakeDevice(const std::string& name, bool hasRules, const std::vector<EnumRuleType>& kinds,
                    std::uint64_t seed);
  void DefineVariables() const;
  void Learn(Device& device, const std::vector<VarInfo>& values) const;
  void ReadHistories(Device& device) const;
  std::unique_ptr<KSRuleInstance> Load(const Device& device, std::int32_t time) const;

  EnumKSDataType dataType_;
  std::string id_;
  std::vector<Device> devices_;
};

/// "int64", "float" or "double".
const char* DataTypeName(EnumKSDataType dataType);

/// The parser of all devices.
inline constexpr const char* kSource = "parser/interfaces";

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_LEARNED_DOMAIN_H
