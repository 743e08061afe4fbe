#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/raw_tables.h"
#include "bench/stored_fleet.h"
#include "keelstone/table_base.h"
#include "keelstone/write_behind.h"

namespace keelstone::bench {

namespace {

constexpr const char* kOwnDomain = "flush";
constexpr const char* kRawDomain = "flush-raw";
constexpr std::size_t kDevices = 100;  // 100 variables each: 10,000 rows of each table
constexpr std::size_t kPoints = 30;    // of the histories that are written

/// How rows come: in the order of their keys, or devices and variables in any order.
enum class Order { kKeys, kAny };

struct Stored {
  Fleet fleet;
  Order order = Order::kKeys;
};

struct UnitRows {
  std::string device;
  std::vector<ObjectRuleData> rules;
  std::vector<ObjectRuleHistoryData> history;
};

UnitRows RowsOf(std::size_t device, const std::vector<std::size_t>& variables, int value) {
  UnitRows rows;
  rows.device = FleetDevice(device);
  for (const std::size_t variable : variables) {
    auto definition = std::make_shared<RuleDefinitionData>(
        kIntEqual, kRuleLearned, "{\"ruleParam\":" + std::to_string(value) + "}");
    definition->variableType = 1;
    const std::string name = FleetVariable(variable);
    const ObjectDefine object = FleetObject(device, variable);
    rows.rules.push_back(
        {{{name, std::move(definition)}}, object, kFleetSource, "", kVariableSourceParser});
    rows.history.push_back(
        {FleetHistory(kPoints, value), object, kFleetSource, name, "", kVariableSourceParser});
  }
  return rows;
}

std::vector<std::size_t> Numbers(std::size_t count) {
  std::vector<std::size_t> numbers(count);
  for (std::size_t i = 0; i < count; ++i) numbers[i] = i;
  return numbers;
}

/// The rows of some devices of the fleet, drawn by chance.
std::vector<UnitRows> DrawRows(const Stored& stored, std::size_t devices, std::mt19937_64& random) {
  std::vector<std::size_t> drawn;
  const std::vector<std::size_t> all = Numbers(std::max(stored.fleet.devices, devices));
  std::sample(all.begin(), all.end(), std::back_inserter(drawn), devices, random);
  std::vector<std::size_t> variables = Numbers(stored.fleet.variables);
  if (stored.order == Order::kAny) std::shuffle(drawn.begin(), drawn.end(), random);
  std::vector<UnitRows> rows;
  for (const std::size_t device : drawn) {
    if (stored.order == Order::kAny) std::shuffle(variables.begin(), variables.end(), random);
    rows.push_back(RowsOf(device, variables, static_cast<int>(random() % 1000)));
  }
  return rows;
}

struct FlatRows {
  std::vector<ObjectRuleData> rules;
  std::vector<ObjectRuleHistoryData> history;
};

/// As SQLite gets them: one after the other as they came.
FlatRows Flat(const std::vector<UnitRows>& units) {
  FlatRows flat;
  for (const UnitRows& unit : units) {
    flat.rules.insert(flat.rules.end(), unit.rules.begin(), unit.rules.end());
    flat.history.insert(flat.history.end(), unit.history.begin(), unit.history.end());
  }
  return flat;
}

void Hand(const std::vector<UnitRows>& units) {
  for (const UnitRows& unit : units) {
    DBWriteWrapper::Instance()->CacheData(kOwnDomain, unit.device, unit.rules, unit.history);
  }
}

/// Every text of a unit's rows, whatever the order in which its database hands them out.
std::vector<std::string> Sorted(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  return texts;
}

/// Whether both databases hold the same of every unit.
bool AreAlike(const WorkRoot& root, const std::vector<UnitRows>& units) {
  const RawReader own(root.DomainFolder(kOwnDomain));
  const RawReader raw(root.DomainFolder(kRawDomain));
  return std::all_of(units.begin(), units.end(), [&](const UnitRows& unit) {
    const UnitKey key(unit.device, kFleetSource, "");
    const RawReader::Rows rows = own.Read(key);
    return rows.rules == unit.rules.size() && Sorted(rows.texts) == Sorted(raw.Read(key).texts);
  });
}

/// Tables with the fleet, the same for both; what an earlier case left of them is taken.
void StoreTwice(const WorkRoot& root, const Fleet& fleet) {
  for (const char* domain : {kOwnDomain, kRawDomain}) StoreFleet(root.DomainFolder(domain), fleet);
}

Rounds FlushRounds(const BenchSettings& settings, Stored stored) {
  const std::size_t devices = settings.brief ? 2 : kDevices;
  if (settings.brief) {
    stored.fleet.devices = std::min<std::size_t>(stored.fleet.devices, 4);
    stored.fleet.variables = 5;
  }
  const bool isFresh = stored.fleet.devices == 0;
  if (!isFresh) StoreTwice(settings.root, stored.fleet);
  auto random = std::make_shared<std::mt19937_64>(settings.seed);
  return {.round = [=, &root = settings.root] {
    if (isFresh) StoreTwice(root, stored.fleet);
    const std::vector<UnitRows> units = DrawRows(stored, devices, *random);
    const FlatRows flat = Flat(units);
    const RawTables raw(root.DomainFolder(kRawDomain));
    Hand(units);
    const std::size_t count = flat.rules.size() + flat.history.size();
    const std::uint64_t failedBefore = GetFailedWriteCount();
    int written = 0;
    const Sample sample = TimeInTurn(
        Clock::kWall, count, [&] { written = DBWriteWrapper::Instance()->WriteDomain(kOwnDomain); },
        [&] { raw.Write(flat.rules, flat.history); });
    if (std::cmp_not_equal(written, count) || GetFailedWriteCount() != failedBefore ||
        !AreAlike(root, units)) {
      throw std::runtime_error("not flushed");
    }
    return Rates(sample);
  }};
}

}  // namespace

void AddFlushCases(BenchCases& cases) {
  const auto add = [&](const char* name, const char* what, Stored stored) {
    cases.push_back({.number = "5",
                     .name = name,
                     .ours = what,
                     .reference = "SQLite's C interface",
                     .unit = "rows/s",
                     .goal = 0.9,
                     .beyond = 1.0,
                     .better = Better::kLarger,
                     .rounds = stored.fleet.devices == 0 ? std::optional<int>() : kLeastRounds,
                     .make = [stored](const BenchSettings& settings) {
                       return FlushRounds(settings, stored);
                     }});
  };
  // Short histories, so that a million of them fit on any disk.
  const Fleet million{.devices = 10'000, .points = 5};
  add("flush/fresh", "flush of 10,000 rules + 10,000 histories", {{}, Order::kKeys});
  add("flush/fresh-any", "the same, in any order", {{}, Order::kAny});
  add("flush/million", "flush into 1,000,000 of each", {million, Order::kKeys});
  add("flush/million-any", "the same, in any order", {million, Order::kAny});
}

}  // namespace keelstone::bench
