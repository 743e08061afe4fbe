#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/learned_device.h"
#include "bench/raw_tables.h"
#include "bench/stored_fleet.h"
#include "storage/ksdatacachequeue.h"
#include "storage/ksdomaindatamanager.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kUnitVariables = 100;
constexpr std::size_t kLoads = 20;  // of the unit in one round
constexpr const char* kFleetDomain = "prefetch";
constexpr Fleet kPrefetched{.devices = 10'000, .variables = 10};

/// Loads rules and histories of one unit into instances that were made before.
Rounds LoadRounds(const BenchSettings& settings) {
  const auto device = std::make_shared<const LearnedDevice>(
      settings, "load", LearnedDevice::Shape{.variables = settings.brief ? 5 : kUnitVariables});
  const auto reader = std::make_shared<const RawReader>(settings.root.DomainFolder("load"));
  return {.round = [device, reader] {
    std::vector<std::unique_ptr<KSRuleInstance>> instances;
    while (instances.size() < kLoads) {
      instances.push_back(device->Instance(Moment::kHistoryYoung));
    }
    std::size_t loaded = 0;
    std::size_t read = 0;
    const Sample sample = TimeInTurn(
        Clock::kWall, kLoads,
        [&] {
          for (const auto& instance : instances) {
            loaded += instance->InitCacheData() && instance->InitHistoryData() ? 1U : 0U;
          }
        },
        [&] {
          for (std::size_t i = 0; i < kLoads; ++i) {
            const RawReader::Rows rows = reader->Read(UnitKey(device->name(), kSource, ""));
            read += rows.rules + rows.histories;
          }
        });
    if (loaded != kLoads || read != kLoads * 2 * device->variables().size() ||
        !instances.back()->IsVarDefineRule(device->variables().front().variableName)) {
      throw std::runtime_error("not loaded");
    }
    return sample;
  }};
}

template <class Data>
std::size_t RowsOf(const std::shared_ptr<Data>& unit) {
  std::size_t rows = 0;
  if (unit == nullptr) return 0;
  for (const auto& [interfaceValue, variables] : *unit) rows += variables.size();
  return rows;
}

/// Puts every unit into the queue, then takes every one: the rows taken.
std::size_t Prefetch(const std::shared_ptr<KSObjectRuleSql>& table,
                     const std::vector<std::shared_ptr<UnitKey>>& keys) {
  KSDataCacheQueue queue;
  queue.SetKSObjectRuleSql(table);
  for (const auto& key : keys) {
    queue.PutRuleKey(key);
    queue.PutHistoryKey(key);
  }
  std::size_t rows = 0;
  for (const auto& key : keys) {
    rows += RowsOf(queue.GetRuleData(key)) + RowsOf(queue.GetHistoryData(key));
  }
  return rows;
}

Rounds PrefetchRounds(const BenchSettings& settings) {
  Fleet fleet = kPrefetched;
  if (settings.brief) fleet.devices = 10;
  StoreFleet(settings.root.DomainFolder(kFleetDomain), fleet);
  const auto reader = std::make_shared<const RawReader>(settings.root.DomainFolder(kFleetDomain));
  const auto table =
      KSDomainDataManager::Instance()->GetKSDataManager(kFleetDomain)->GetObjectRuleTable();
  std::vector<std::shared_ptr<UnitKey>> keys;
  for (std::size_t i = 0; i < fleet.devices; ++i) {
    keys.push_back(std::make_shared<UnitKey>(FleetDevice(i), kFleetSource, ""));
  }
  return {.round = [=] {
    std::size_t loaded = 0;
    std::size_t read = 0;
    const Sample sample = TimeInTurn(
        Clock::kWall, keys.size(), [&] { loaded = Prefetch(table, keys); },
        [&] {
          for (const auto& key : keys) {
            const RawReader::Rows rows = reader->Read(*key);
            read += rows.rules + rows.histories;
          }
        });
    if (loaded != 2 * fleet.rows() || read != loaded) throw std::runtime_error("not prefetched");
    return sample;
  }};
}

/// Units of as many devices as sources, or all of one device; the index is there.
struct Stored {
  std::shared_ptr<KSObjectRuleSql> table;
  std::vector<std::shared_ptr<UnitKey>> keys;  // some units, spread over all
};

Stored StoreUnits(const BenchSettings& settings, const char* domain, const Fleet& fleet,
                  std::size_t units) {
  StoreFleet(settings.root.DomainFolder(domain), fleet);
  Stored stored;
  stored.table = KSDomainDataManager::Instance()->GetKSDataManager(domain)->GetObjectRuleTable();
  // The first writing to a file makes its index.
  stored.table->SetRuleAlgParam(std::vector<ObjectRuleData>());
  stored.table->SetRuleHistoryData(std::vector<ObjectRuleHistoryData>());
  for (std::size_t i = 0; i < units; ++i) {
    const std::size_t unit = i * fleet.devices / units;
    stored.keys.push_back(fleet.onOneDevice
                              ? std::make_shared<UnitKey>(FleetDevice(0), FleetSource(unit), "")
                              : std::make_shared<UnitKey>(FleetDevice(unit), kFleetSource, ""));
  }
  return stored;
}

Rounds SourcesRounds(const BenchSettings& settings, std::size_t sources) {
  Fleet fleet{.devices = settings.brief ? 20 : sources, .variables = 10, .points = 5};
  const std::size_t units = std::min<std::size_t>(fleet.devices, 1000);
  const Stored devices = StoreUnits(settings, "many-devices", fleet, units);
  fleet.onOneDevice = true;
  const Stored one = StoreUnits(settings, "one-device", fleet, units);
  return {.round = [=] {
    std::size_t ofOne = 0;
    std::size_t ofMany = 0;
    const Sample sample = TimeInTurn(
        Clock::kWall, units, [&] { ofOne = Prefetch(one.table, one.keys); },
        [&] { ofMany = Prefetch(devices.table, devices.keys); });
    if (ofOne != 2 * units * fleet.variables || ofMany != ofOne) {
      throw std::runtime_error("not prefetched");
    }
    return sample;
  }};
}

}  // namespace

void AddUnitCases(BenchCases& cases) {
  cases.push_back({.number = "6",
                   .name = "load/unit",
                   .ours = "load of a unit of 100 variables",
                   .reference = "two cached selects",
                   .unit = "ns/unit",
                   .goal = 2.0,
                   .beyond = 1.5,
                   .make = LoadRounds});
  cases.push_back({.number = "7",
                   .name = "prefetch/units",
                   .ours = "prefetch of 10,000 units of 10 variables",
                   .reference = "two cached selects a unit",
                   .unit = "ns/unit",
                   .goal = 1.2,
                   .beyond = 0.8,
                   .rounds = kLeastRounds,
                   .make = PrefetchRounds});
  const auto addSources = [&](const char* name, const char* what, std::size_t sources) {
    cases.push_back({.number = "7",
                     .name = name,
                     .ours = what,
                     .reference = "the same on as many devices",
                     .unit = "ns/unit",
                     .goal = 1.5,
                     .beyond = 1.1,
                     .rounds = kLeastRounds,
                     .make = [sources](const BenchSettings& settings) {
                       return SourcesRounds(settings, sources);
                     }});
  };
  addSources("prefetch/sources-1000", "load of 1,000 units, all of one device", 1000);
  addSources("prefetch/sources-100000", "load of 1,000 of 100,000 units of one device", 100'000);
}

}  // namespace keelstone::bench
