#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/paired_report.h"
#include "bench/raw_tables.h"
#include "storage/dbwritewrapper.h"
#include "storage/ksdomaindatamanager.h"

namespace keelstone::bench {

namespace {

constexpr const char* kFlushDomain = "flush";
constexpr const char* kFlushDevice = "core-1";
constexpr std::size_t kFlushRows = 10'000;  // of each table

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

FlushRows MakeFlushRows() {
  FlushRows rows;
  for (std::size_t i = 0; i < kFlushRows; ++i) {
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

void Flush(benchmark::State& state, const WorkRoot& root, const FlushRows& rows, bool replace) {
  const RawTables own(root.DomainFolder(kFlushDomain));
  const RawTables peer(root.path() / "raw");
  own.CreateTables();
  peer.CreateTables();
  if (replace) {
    Hand(rows);
    DBWriteWrapper::Instance()->WriteDomain(kFlushDomain);
    peer.Write(rows.rules, rows.history);
  }
  Hand(rows);
  const std::uint64_t failedBefore = GetFailedWriteCount();
  int written = 0;
  MeasurePair(
      state, Clock::kWall, 2 * kFlushRows,
      [&] { written = DBWriteWrapper::Instance()->WriteDomain(kFlushDomain); },
      [&] { peer.Write(rows.rules, rows.history); });
  const UnitKey unit(kFlushDevice, kSource, "");
  const RawTables::Rows stored = own.ReadDevice(unit);
  if (written != 2 * static_cast<int>(kFlushRows) || GetFailedWriteCount() != failedBefore ||
      stored.texts != peer.ReadDevice(unit).texts) {
    state.SkipWithError("not flushed");
  }
}

void Load(benchmark::State& state, const WorkRoot& root, const LearnedDomain& domain,
          const Device& device) {
  const RawTables peer(root.DomainFolder(domain.id()));
  const auto manager = KSDomainDataManager::Instance()->GetKSDataManager(domain.id());
  ObjectDefine object;
  object.deviceName = device.name;
  DevParserRule rules;
  DevParserHistory histories;
  RawTables::Rows rows;
  MeasurePair(
      state, Clock::kWall, 2 * device.variables.size(),
      [&] {
        manager->GetRuleDefinitionDataByDev(rules, &object, kSource, "", kVariableSourceParser);
        manager->GetRuleHistoryData(histories, &object, kSource, "", kVariableSourceParser);
      },
      [&] { rows = peer.ReadDevice(UnitKey(device.name, kSource, "")); });
  std::size_t loaded = 0;
  for (const auto& [interfaceValue, definitions] : rules) loaded += definitions.size();
  for (const auto& [interfaceValue, texts] : histories) loaded += texts.size();
  if (loaded != 2 * device.variables.size() || loaded != rows.rules + rows.histories) {
    state.SkipWithError("not loaded");
  }
}

template <class Run>
void Register(const char* name, int repetitions, Run run) {
  benchmark::RegisterBenchmark(name, std::move(run))
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(repetitions);
}

}  // namespace

void RegisterFlush(const WorkRoot& root, int repetitions) {
  const auto rows = std::make_shared<const FlushRows>(MakeFlushRows());
  for (const bool replace : {false, true}) {
    Register(
        replace ? "flush/replace" : "flush/insert", repetitions,
        [&root, rows, replace](benchmark::State& state) { Flush(state, root, *rows, replace); });
  }
}

void RegisterLoad(const WorkRoot& root, const LearnedDomain& domain, int repetitions) {
  for (const Device& device : domain.devices()) {
    if (device.name != "learned-mix") continue;
    Register("load/device", repetitions,
             [&](benchmark::State& state) { Load(state, root, domain, device); });
  }
}

}  // namespace keelstone::bench
