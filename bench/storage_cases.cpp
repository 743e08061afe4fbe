#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/history_series.h"
#include "bench/learned_device.h"
#include "bench/raw_tables.h"
#include "storage/dbwritewrapper.h"
#include "storage/ksdomaindatamanager.h"

namespace keelstone::bench {

namespace {

constexpr const char* kFlushDomain = "flush";
constexpr const char* kFlushDevice = "core-1";
constexpr std::size_t kFlushRows = 10'000;  // of each table
constexpr std::size_t kUnitVariables = 100;
constexpr std::size_t kLoads = 20;  // of the unit in one round

struct FlushRows {
  std::vector<ObjectRuleData> rules;
  std::vector<ObjectRuleHistoryData> history;
};

std::string HistoryText(std::size_t seed) {
  std::string text = "{\"dataType\":1,\"dataList\":[";
  for (std::size_t i = 0; i < kHistoryPoints; ++i) {
    if (i > 0) text += ',';
    text += "{\"liveTime\":" + std::to_string(1'700'000'000 + i * 1'800) +
            ",\"dataValue\":" + std::to_string(seed * 7'919 + i) + '}';
  }
  return text += "]}";
}

/// `count` rows of each table.
FlushRows MakeFlushRows(std::size_t count) {
  FlushRows rows;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = "counter" + std::to_string(i % 20);
    auto definition = std::make_shared<RuleDefinitionData>(
        kIntRange, kRuleLearned, "{\"maxValue\":" + std::to_string(i) + ",\"minValue\":0}");
    definition->variableType = 1;
    ObjectRuleData& rule = rows.rules.emplace_back();
    rule.definitions.emplace(name, std::move(definition));
    rule.object.deviceName = kFlushDevice;
    rule.object.interfaceValue = "GigabitEthernet0/" + std::to_string(i / 20);
    rule.variableSource = kSource;
    rows.history.push_back({HistoryText(i), rule.object, kSource, name, "", kVariableSourceParser});
  }
  return rows;
}

void Hand(const FlushRows& rows) {
  DBWriteWrapper::Instance()->CacheData(kFlushDomain, kFlushDevice, rows.rules, rows.history);
}

/// Writes pending rows of both tables into fresh tables, or over the rows that are there.
Rounds FlushRounds(const BenchSettings& settings, bool replace) {
  const auto rows =
      std::make_shared<const FlushRows>(MakeFlushRows(settings.brief ? 10 : kFlushRows));
  const std::filesystem::path ownFolder = settings.root.DomainFolder(kFlushDomain);
  const std::filesystem::path rawFolder = settings.root.path() / "raw";
  return {.round = [=] {
    const RawTables own(ownFolder);
    const RawTables raw(rawFolder);
    own.CreateTables();
    raw.CreateTables();
    if (replace) {
      Hand(*rows);
      DBWriteWrapper::Instance()->WriteDomain(kFlushDomain);
      raw.Write(rows->rules, rows->history);
    }
    Hand(*rows);
    const std::size_t count = rows->rules.size() + rows->history.size();
    const std::uint64_t failedBefore = GetFailedWriteCount();
    int written = 0;
    const Sample sample = TimeInTurn(
        Clock::kWall, count,
        [&] { written = DBWriteWrapper::Instance()->WriteDomain(kFlushDomain); },
        [&] { raw.Write(rows->rules, rows->history); });
    const UnitKey unit(kFlushDevice, kSource, "");
    if (std::cmp_not_equal(written, count) || GetFailedWriteCount() != failedBefore ||
        RawReader(ownFolder).Read(unit).texts != RawReader(rawFolder).Read(unit).texts) {
      throw std::runtime_error("not flushed");
    }
    return Rates(sample);
  }};
}

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

}  // namespace

void AddStorageCases(BenchCases& cases) {
  for (const bool replace : {false, true}) {
    cases.push_back({.number = "5",
                     .name = replace ? "flush/replace" : "flush/fresh",
                     .ours = replace ? "flush over 10,000 rules + 10,000 histories"
                                     : "flush of 10,000 rules + 10,000 histories",
                     .reference = "SQLite's C interface",
                     .unit = "rows/s",
                     .goal = 0.9,
                     .beyond = 1.0,
                     .better = Better::kLarger,
                     .make = [replace](const BenchSettings& settings) {
                       return FlushRounds(settings, replace);
                     }});
  }
  cases.push_back({.number = "6",
                   .name = "load/unit",
                   .ours = "load of a unit of 100 variables",
                   .reference = "two cached selects",
                   .unit = "ns/unit",
                   .goal = 2.0,
                   .beyond = 1.5,
                   .make = LoadRounds});
}

}  // namespace keelstone::bench
