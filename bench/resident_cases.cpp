#include <malloc.h>

#include <algorithm>
#include <array>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/json_round_trip.h"
#include "bench/learned_device.h"
#include "bench/raw_tables.h"
#include "bench/stored_fleet.h"
#include "keelstone/resident_store.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kVariables = 100;                 // of one parser on one device
constexpr std::size_t kEnough = std::size_t{1} << 40U;  // bytes: nothing leaves
constexpr std::size_t kLaterRuns = 1'000;

double HeapBytes() {
  const struct mallinfo2 heap = ::mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

/// A learned device whose unit is in memory, and has come often enough to be kept as points.
class ResidentDevice {
 public:
  ResidentDevice(const BenchSettings& settings, std::string domainId, LearnedDevice::Shape shape)
      : settings_(settings), domainId_(std::move(domainId)), shape_(shape) {
    Renew();
  }

  const LearnedDevice& device() const { return *device_; }

  /// An instance over the unit, for the next run.
  std::unique_ptr<KSRuleInstance> Check() const {
    return Attached(device_->Instance(Moment::kHistoryYoung));
  }
  /// The same for a run whose values all join their histories, and those values.
  std::pair<std::unique_ptr<KSRuleInstance>, const std::vector<VarInfo>*> Relearn() {
    if (run_ == kLaterRuns) Renew();
    device_->TakeValues(run_, values_);
    return {Attached(device_->LaterInstance(run_++)), &values_};
  }

 private:
  void Renew() {
    store_.reset();  // before its domain
    device_.emplace(settings_, domainId_ + std::to_string(renewals_++), shape_);
    store_.emplace(kEnough);
    values_ = device_->variables();
    run_ = 0;
    for (int i = 0; i < 2; ++i) Check();
  }

  std::unique_ptr<KSRuleInstance> Attached(std::unique_ptr<KSRuleInstance> instance) const {
    auto unit = store_->Take(device_->domainId(), {device_->name(), kSource, ""});
    Require(unit != nullptr, "the unit is not to be had");
    instance->Attach(std::move(unit));
    Require(instance->InitCacheData() && instance->InitHistoryData(), "nothing to load");
    return instance;
  }

  const BenchSettings settings_;
  const std::string domainId_;
  const LearnedDevice::Shape shape_;
  int renewals_ = 0;
  std::size_t run_ = 0;
  std::vector<VarInfo> values_;
  std::optional<LearnedDevice> device_;
  mutable std::optional<ResidentStore> store_;
};

std::shared_ptr<ResidentDevice> MakeDevice(const BenchSettings& settings, const std::string& verb,
                                           EnumKSDataType dataType) {
  return std::make_shared<ResidentDevice>(
      settings, "resident-" + verb + "-" + NameOfType(dataType),
      LearnedDevice::Shape{.dataType = dataType,
                           .variables = settings.brief ? 20 : kVariables,
                           .laterRuns = kLaterRuns});
}

Rounds CheckRounds(const BenchSettings& settings, EnumKSDataType dataType) {
  const auto resident = MakeDevice(settings, "check", dataType);
  return {.round = [resident] {
    const LearnedDevice& device = resident->device();
    const auto instance = resident->Check();
    std::size_t processed = 0;
    std::size_t written = 0;
    const Sample sample = TimeInTurn(
        Clock::kProcessor, device.variables().size(),
        [&] {
          for (const VarInfo& variable : device.variables()) {
            processed += instance->ProcessVariable(variable) ? 1U : 0U;
          }
        },
        [&] { written = JsonRoundTrip(device.histories()); });
    Require(processed == device.variables().size() && written > 0, "not evaluated");
    Require(instance->GetUpdateResultData()->GetKSAlertResults().empty(), "not as learned");
    return sample;
  }};
}

/// With what the unit takes in at the end of the run.
Rounds RelearnRounds(const BenchSettings& settings, EnumKSDataType dataType) {
  const auto resident = MakeDevice(settings, "relearn", dataType);
  return {.round = [resident] {
    const auto [instance, values] = resident->Relearn();
    std::size_t processed = 0;
    std::size_t written = 0;
    const Sample sample = TimeInTurn(
        Clock::kProcessor, values->size(),
        [&, &run = *instance, &of = *values] {
          for (const VarInfo& variable : of) processed += run.ProcessVariable(variable) ? 1U : 0U;
          run.SerializeLocalDB();
        },
        [&] { written = JsonRoundTrip(resident->device().histories()); });
    Require(processed == values->size() && written > 0, "not evaluated");
    return sample;
  }};
}

/// What a variable takes, on the heap as a whole.
Rounds BytesRounds(const BenchSettings& settings) {
  const std::size_t devices = settings.brief ? 2 : 50;
  std::vector<std::shared_ptr<LearnedDevice>> learned;
  for (std::size_t i = 0; i < devices; ++i) {
    learned.push_back(std::make_shared<LearnedDevice>(
        settings, "bytes-" + std::to_string(i),
        LearnedDevice::Shape{.dataType = KSDataDouble, .variables = kVariables}));
  }
  return {.round = [learned] {
    const double before = HeapBytes();
    ResidentStore store(kEnough);
    for (int run = 0; run < 2; ++run) {
      for (const auto& device : learned) {
        const auto instance = device->Instance(Moment::kHistoryYoung);
        instance->Attach(store.Take(device->domainId(), {device->name(), kSource, ""}));
        Require(instance->InitCacheData() && instance->InitHistoryData(), "nothing to load");
      }
    }
    const auto variables = static_cast<double>(learned.size() * kVariables);
    const double took = (HeapBytes() - before) / variables;
    Require(store.units() == learned.size(), "units have left");
    return Sample{.ours = took,
                  .reference = 1,
                  .figures = {{"bytes by the store's count",
                               static_cast<double>(store.bytes()) / variables}}};
  }};
}

/// Many units in memory, each with a run waiting for it.
class ResidentFleet {
 public:
  ResidentFleet(const BenchSettings& settings, const std::string& domainId, const Fleet& fleet)
      : domainId_(domainId), fleet_(fleet), store_(kEnough) {
    const RawTables tables(settings.root.DomainFolder(domainId));
    tables.CreateSettings(DefaultGeneralSettings().toString());
    StoreFleet(settings.root.DomainFolder(domainId), fleet);
    for (std::size_t i = 0; i < fleet.variables; ++i) {
      VarInfo& variable = values_.emplace_back();
      variable.variableName = FleetVariable(i);
      variable.interfaceValue = FleetInterface(i);
      variable.dataType = KSDataInt64;
      variable.variableType = 1;
      variable.valueText = std::to_string(kFleetValue);
    }
    order_.resize(fleet.devices);
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    std::vector<UnitKey> keys;
    for (const std::size_t i : order_) keys.emplace_back(FleetDevice(i), kFleetSource, "");
    store_.LoadAhead(domainId, keys);
    std::shuffle(order_.begin(), order_.end(), std::mt19937_64(settings.seed));
    for (int run = 0; run < 2; ++run) Check(order_.size());
  }

  /// Checks the values of so many units, in an order of chance: ns a value.
  double Check(std::size_t units) {
    std::size_t processed = 0;
    const double took = Nanoseconds(Clock::kProcessor, [&] {
      for (std::size_t i = 0; i < units; ++i) processed += Run(order_[next_++ % order_.size()]);
    });
    Require(processed == units * values_.size(), "not evaluated");
    return took / static_cast<double>(processed);
  }

 private:
  std::size_t Run(std::size_t device) {
    const std::string name = FleetDevice(device);
    KSRuleInstance instance(kFleetSource, "", name, "", "", "", domainId_, "",
                            FleetTime(fleet_.points - 1) + 60, false);
    instance.Attach(store_.Take(domainId_, {name, kFleetSource, ""}));
    instance.InitCacheData();
    instance.InitHistoryData();
    std::size_t processed = 0;
    for (const VarInfo& value : values_) processed += instance.ProcessVariable(value) ? 1U : 0U;
    return processed;
  }

  const std::string domainId_;
  const Fleet fleet_;
  std::vector<VarInfo> values_;
  std::vector<std::size_t> order_;
  std::size_t next_ = 0;
  ResidentStore store_;
};

Rounds ManyRounds(const BenchSettings& settings) {
  const auto few = std::make_shared<ResidentFleet>(settings, "resident-few",
                                                   Fleet{.devices = settings.brief ? 2U : 100U});
  const auto many = std::make_shared<ResidentFleet>(
      settings, "resident-many", Fleet{.devices = settings.brief ? 4U : 10'000U});
  const std::size_t units = settings.brief ? 4 : 2'000;
  return {.round = [=] {
    Sample sample;
    sample.ours = many->Check(units);
    sample.reference = few->Check(units);
    return sample;
  }};
}

BenchCase TypeCase(const char* number, const std::string& verb, EnumKSDataType dataType,
                   std::function<Rounds(const BenchSettings&)> make) {
  return {.number = number,
          .name = "resident/" + verb + "/" + NameOfType(dataType),
          .ours = verb + " a value, 30 of " + NameOfType(dataType) + " in memory",
          .reference = "RapidJSON parse + write of the history",
          .unit = "ns/value",
          .repeat = true,
          .make = std::move(make)};
}

}  // namespace

void AddResidentCases(BenchCases& cases) {
  const std::array kTypes = {KSDataDouble, KSDataInt64, KSDataString, KSDataFloat};
  for (const EnumKSDataType dataType : kTypes) {
    cases.push_back(TypeCase("15", "relearn", dataType, [=](const BenchSettings& settings) {
      return RelearnRounds(settings, dataType);
    }));
    if (dataType != KSDataDouble) continue;
    cases.back().goal = 0.15;
    cases.back().beyond = 0.05;
  }
  for (const EnumKSDataType dataType : kTypes) {
    cases.push_back(TypeCase("16", "check", dataType, [=](const BenchSettings& settings) {
      return CheckRounds(settings, dataType);
    }));
    cases.back().goal = 0.03;
    cases.back().beyond = 0.01;
  }
  cases.push_back({.number = "17",
                   .name = "resident/bytes",
                   .ours = "a numeric variable with 30 points in memory",
                   .reference = "a byte",
                   .unit = "bytes",
                   .goal = 1024,
                   .beyond = 600,
                   .make = BytesRounds});
  cases.push_back({.number = "20",
                   .name = "resident/many",
                   .ours = "check a value, 1,000,000 variables in memory",
                   .reference = "10,000 in memory",
                   .unit = "ns/value",
                   .goal = 1.5,
                   .beyond = 1.2,
                   .make = ManyRounds});
}

}  // namespace keelstone::bench
