#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/stored_fleet.h"
#include "keelstone/write_behind.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kMany = 10'000;
constexpr std::size_t kFew = 10;

enum class Kind { kDefinition, kHistory };

struct PendingKeyTexts {
  std::string interfaceValue;
  std::string variableName;
};

/// Two devices with pending rows, `many` and `few`, of a domain that no other case has.
class PendingDevices {
 public:
  PendingDevices(std::size_t many, Kind kind)
      : kind_(kind), domainId_(kind == Kind::kHistory ? "pending-history" : "pending-rules") {
    many_ = HandOver("many", many);
    const Keys few = HandOver("few", kFew);
    // As many texts to ask with, so that reading them costs both sides the same.
    while (few_.size() < many) few_.insert(few_.end(), few.begin(), few.end());
  }
  ~PendingDevices() { DBWriteWrapper::Instance()->WriteDomain(domainId_); }
  PendingDevices(const PendingDevices&) = delete;
  PendingDevices& operator=(const PendingDevices&) = delete;

  /// Looks up every row of the device, in the order of a run, until `lookups` are done; the
  /// rows found.
  std::size_t LookUpMany(std::size_t lookups) const { return LookUp("many", many_, lookups); }
  std::size_t LookUpFew(std::size_t lookups) const { return LookUp("few", few_, lookups); }

 private:
  using Keys = std::vector<PendingKeyTexts>;

  Keys HandOver(const std::string& device, std::size_t count) const {
    Keys keys;
    std::vector<ObjectRuleData> rules;
    std::vector<ObjectRuleHistoryData> history;
    ObjectDefine object;
    object.deviceName = device;
    for (std::size_t i = 0; i < count; ++i) {
      keys.push_back({FleetInterface(i), FleetVariable(i)});
      object.interfaceValue = keys.back().interfaceValue;
      if (kind_ == Kind::kHistory) {
        history.push_back({FleetHistory(1, kFleetValue), object, kFleetSource,
                           keys.back().variableName, "", kVariableSourceParser});
      } else {
        auto definition = std::make_shared<RuleDefinitionData>(kIntEqual, kRuleLearned, "{}");
        rules.push_back({{{keys.back().variableName, std::move(definition)}},
                         object,
                         kFleetSource,
                         "",
                         kVariableSourceParser});
      }
    }
    DBWriteWrapper::Instance()->CacheData(domainId_, device, std::move(rules), std::move(history));
    return keys;
  }

  std::size_t LookUp(const std::string& device, const Keys& keys, std::size_t lookups) const {
    const DBWriteWrapper& cache = *DBWriteWrapper::Instance();
    const std::string source = kFleetSource;
    const std::string param;
    std::string history;
    std::size_t found = 0;
    for (std::size_t i = 0, next = 0; i < lookups;
         ++i, next = next + 1 < keys.size() ? next + 1 : 0) {
      const auto& [interfaceValue, variableName] = keys[next];
      if (kind_ == Kind::kHistory) {
        found += cache.GetCachedHistoryData(domainId_, device, interfaceValue, source, param,
                                            variableName, history) == 1
                     ? 1U
                     : 0U;
      } else {
        found += cache.GetCachedRuleDefinition(domainId_, device, interfaceValue, source, param,
                                               variableName) != nullptr
                     ? 1U
                     : 0U;
      }
    }
    return found;
  }

  Kind kind_;
  std::string domainId_;
  Keys many_;
  Keys few_;
};

Rounds LookupRounds(const BenchSettings& settings, Kind kind) {
  const std::size_t many = settings.brief ? 100 : kMany;
  const auto devices = std::make_shared<const PendingDevices>(many, kind);
  return {.round = [devices, many] {
    std::size_t found = 0;
    const Sample sample = TimeInTurn(
        Clock::kProcessor, many, [&] { found += devices->LookUpMany(many); },
        [&] { found += devices->LookUpFew(many); });
    if (found != 2 * many) throw std::runtime_error("not found");
    return sample;
  }};
}

}  // namespace

void AddPendingCases(BenchCases& cases) {
  for (const Kind kind : {Kind::kDefinition, Kind::kHistory}) {
    const bool isHistory = kind == Kind::kHistory;
    cases.push_back(
        {.number = "9",
         .name = isHistory ? "pending/history" : "pending/definition",
         .ours = std::string("lookup of a pending ") + (isHistory ? "history" : "definition") +
                 " among 10,000 rows",
         .reference = "among 10",
         .unit = "ns/lookup",
         .goal = 1.5,
         .repeat = true,
         .make = [kind](const BenchSettings& settings) { return LookupRounds(settings, kind); }});
  }
}

}  // namespace keelstone::bench
