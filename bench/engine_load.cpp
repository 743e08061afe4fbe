#include "bench/engine_load.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <utility>

#include "keelstone/data_sync_manager.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "tests/engine/evaluated_unit.h"

namespace keelstone::testing {

namespace {

constexpr std::int32_t kStart = 1000000000;  // s since the epoch
constexpr std::int32_t kStep = 2000;         // s, longer than "IntervalTime"
constexpr std::int32_t kRunsInTime = 500000;
constexpr const char* kGoneSource = "gone";
constexpr const char* kDeliveredDevice = "delivered";

/// A number that looks like chance and follows from what it is asked for.
std::size_t Chance(const LoadUnit& unit, int run, int salt) {
  return std::hash<std::string>{}(unit.device + '/' + unit.source + '/' + std::to_string(run) +
                                  '/' + std::to_string(salt));
}

VarInfo Routes(const LoadUnit& unit, int run) {
  std::string rows = "[\"10.0.0.0/16\",\"" + unit.device + "\"]";
  if (Chance(unit, run, 1) % 20 == 0) rows += ",[\"0.0.0.0/0\",\"" + unit.device + "\"]";
  VarInfo routes = Value("routes", KSDataTable, rows, {}, 11);
  if (!JsonReader::Parse(R"({"columns":["prefix","via"],"rows":[)" + rows + "]}", routes.value)) {
    std::abort();
  }
  routes.tableKeys = {"prefix", "via"};
  return routes;
}

std::vector<VarInfo> Variables(const LoadUnit& unit, int run) {
  const std::size_t chance = Chance(unit, run, 0);
  const std::string tenths = std::to_string(chance % 10);
  return {
      Value("uptime", KSDataInt64, std::to_string(run * 100), {}, 1),
      Value("peers", KSDataInt64, std::to_string(3 + (chance / 10) % 2), "eth0", 1),
      Value("load", KSDataDouble, "0.4" + tenths + std::to_string(chance / 100 % 10), {}, 2),
      Value("share", KSDataFloat, "12." + tenths, "eth0", 25),
      Value("state", KSDataString, chance / 1000 % 25 == 0 ? "Idle" : "Established", "eth0", 3),
      Routes(unit, run),
  };
}

std::string Settings() {
  JsonValue document = DefaultGeneralSettings();
  for (const char* const kind : {"intEqual", "intEnum", "intRange", "intConstant", "intIncrease",
                                 "strEqual", "strEnum", "tableMd5"}) {
    document[kind]["timeIntervalLimit"] = kStep / 2;
  }
  return document.toString();
}

}  // namespace

std::vector<LoadUnit> SteadyUnits(int devices) {
  std::vector<LoadUnit> units;
  for (int device = 0; device < devices; ++device) {
    for (const char* source : {"bgp", "system"}) {
      units.push_back({"r" + std::to_string(device), source});
    }
  }
  return units;
}

void SetTinyCache(const std::string& root) {
  std::filesystem::create_directories(root + "/conf");
  std::ofstream(root + "/conf/fix_frontserver.ini") << "[Keelstone]\nCacheSize=7\nCacheTime=1\n"
                                                       "BachCount=5\n";
}

LoadedDomain::LoadedDomain(const std::string& id) : files_(id) {
  files_.SetGeneralSettings(Settings());
  for (const char* source : {"bgp", "system", kGoneSource}) {
    for (const VarInfo& variable : Variables({"", ""}, 0)) {
      files_.AddVariableRule({source, variable.variableName, -1, "", variable.variableType});
    }
  }
  delivered_ = std::make_unique<DomainFiles>(files_.CopyAs(id + " delivered"));
  delivered_->Execute(kDbObjectRule,
                      "insert into KSObjectRule values('" + std::string(kDeliveredDevice) +
                          R"(','','bgp','','uptime',2,1,'','',1,4,'{"ruleParam":5}',1,0))");
  queue_.SetKSObjectRuleSql(
      KSDomainDataManager::Instance()->GetKSDataManager(id)->GetObjectRuleTable());
  cleaner_.SetDomainId(id);
  cleaner_.SetCurrAllParserPaths({"bgp", "system"});
  cleaner_.Start();
}

LoadedDomain::~LoadedDomain() { cleaner_.Stop(); }

int LoadedDomain::Evaluate(const LoadUnit& unit, int run, bool isAhead) {
  KSRuleInstance instance(unit.source, "node", unit.device, "schema", "structure", "", id(), "",
                          kStart + kStep * (run % kRunsInTime), false);
  if (isAhead) {
    const auto key = std::make_shared<UnitKey>(unit.device, unit.source, "");
    queue_.PutRuleKey(key);
    queue_.PutHistoryKey(key);
    if (auto rules = queue_.GetRuleData(key)) instance.SetCacheData(std::move(*rules));
    if (auto texts = queue_.GetHistoryData(key)) instance.SetHistoryData(std::move(*texts));
  }
  instance.IsInBlockTime();
  instance.InitCacheData();
  instance.InitHistoryData();
  int refused = 0;
  for (const VarInfo& variable : Variables(unit, run)) {
    if (!instance.ProcessVariable(variable)) ++refused;
  }
  instance.GetUpdateResultData()->ToJsonString();
  instance.SerializeLocalDB();
  return refused;
}

void LoadedDomain::Flush() const { DBWriteWrapper::Instance()->WriteDomain(id()); }

void LoadedDomain::OverwriteSettings() const {
  auto* const sync = FSKSDataSyncManager::Instance();
  sync->MergeGlobalSetting(Delivered(kDbGlobalSetting), files_.Path(kDbGlobalSetting), id(), true);
  sync->MergeVariableRule(Delivered(kDbVariableRule), files_.Path(kDbVariableRule), id(), true);
  sync->MergeBlockSetting(Delivered(kDbBlockSetting), files_.Path(kDbBlockSetting), id(), true);
}

void LoadedDomain::MergeDeliveredRules() const {
  FSKSDataSyncManager::Instance()->MergeObjectRule(Delivered(kDbObjectRule),
                                                   files_.Path(kDbObjectRule), id(), true);
}

void LoadedDomain::Invalidate() const {
  auto* const sync = FSKSDataSyncManager::Instance();
  sync->InvalidateKSGlobalSettingCaches(id());
  sync->InvalidateKSVariableRuleCaches(id());
  sync->InvalidateKSObjectRuleCaches(id());
  sync->InvalidateKSBlockSettingCaches(id());
}

void LoadedDomain::HaveCleaned(int run) {
  Evaluate({"r0", kGoneSource}, run);
  cleaner_.Clean();
}

std::vector<std::string> LoadedDomain::Rows(const std::string& without) const {
  const std::string key =
      "select deviceName||' '||variableSource||' '||interfaceValue||' '||variableName||' '||";
  const std::string steady = " where deviceName not in ('" + without + "','" + kDeliveredDevice +
                             "') and variableSource <> '" + kGoneSource + "' order by 1";
  std::vector<std::string> rows =
      files_.Select(kDbObjectRule, key +
                                       "ruleTypeId||' '||ruleGenerateType||' '||ruleAlgParameter "
                                       "from KSObjectRule" +
                                       steady);
  const auto histories =
      files_.Select(kDbObjectHistory, key + "HistoryData from KSObjectHistory" + steady);
  rows.insert(rows.end(), histories.begin(), histories.end());
  return rows;
}

std::string LoadedDomain::Delivered(EnumDbType type) const { return delivered_->Path(type); }

Disturbance::Disturbance(const std::vector<std::unique_ptr<LoadedDomain>>& domains) {
  for (const auto& domain : domains) {
    Repeat([&domain](int) { domain->OverwriteSettings(); });
    Repeat([&domain](int) { domain->MergeDeliveredRules(); });
    Repeat([&domain](int) { domain->Invalidate(); });
    Repeat([&domain](int run) { domain->HaveCleaned(run); });
    Repeat([&domain](int) { domain->Flush(); });
  }
  Repeat([](int) { DBWriteWrapper::Instance()->ForceWriteDisk(); });
}

template <class Step>
void Disturbance::Repeat(Step step) {
  threads_.emplace_back([this, step] {
    std::uint64_t seen = 0;
    for (int run = 0; !stopping_; ++run) {
      step(run);
      ++steps_;
      pulse_.wait(seen);
      seen = pulse_;
    }
  });
}

void Disturbance::Pulse() {
  ++pulse_;
  pulse_.notify_all();
}

void Disturbance::Stop() {
  stopping_ = true;
  Pulse();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

}  // namespace keelstone::testing
