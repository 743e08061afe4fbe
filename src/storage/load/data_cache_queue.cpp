#include "keelstone/data_cache_queue.h"

#include <utility>

#include "keelstone/ini_reader.h"
#include "storage/load/unit_loader.h"

namespace keelstone {

namespace {

constexpr UnitLoader<DevParserRule>::Kind kRules{
    &KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers, "rule", ".",
    "KSDataCacheQueue::LoadRuleData", "KSDataCacheQueue::GetRuleData"};
constexpr UnitLoader<DevParserHistory>::Kind kHistories{
    &KSObjectRuleSql::GetMultiRuleHistoryDataBeDevParsers, "history", "",
    "KSDataCacheQueue::LoadHistoryData", "KSDataCacheQueue::GetHistoryData"};

std::int32_t ReadPackageMaxSize() {
  return IniReader::GetInt("Upload", "PackageMaxSize", 0x800000, "fix_frontserver.ini",
                           "frontserver.ini");
}

}  // namespace

struct KSDataCacheQueue::Loaders {
  UnitLoader<DevParserRule> rules{kRules};
  UnitLoader<DevParserHistory> histories{kHistories};
};

KSDataCacheQueue::KSDataCacheQueue()
    : rulePackageMaxSize_(ReadPackageMaxSize()),
      historyPackageMaxSize_(ReadPackageMaxSize()),
      loaders_(std::make_unique<Loaders>()) {}

KSDataCacheQueue::~KSDataCacheQueue() = default;

void KSDataCacheQueue::SetKSObjectRuleSql(std::shared_ptr<KSObjectRuleSql> table) {
  if (table == nullptr) return;
  loaders_->rules.SetTable(table);
  loaders_->histories.SetTable(std::move(table));
}

void KSDataCacheQueue::PutRuleKey(std::shared_ptr<UnitKey> key) {
  loaders_->rules.Put(std::move(key), true);
}

void KSDataCacheQueue::PutHistoryKey(std::shared_ptr<UnitKey> key) {
  loaders_->histories.Put(std::move(key), true);
}

int KSDataCacheQueue::GetRuleKeys(std::vector<std::shared_ptr<UnitKey>>& out) {
  return loaders_->rules.TakeKeys(out);
}

int KSDataCacheQueue::GetHistoryKeys(std::vector<std::shared_ptr<UnitKey>>& out) {
  return loaders_->histories.TakeKeys(out);
}

std::shared_ptr<UnitKey> KSDataCacheQueue::GetHistoryKey() { return loaders_->histories.TakeOne(); }

void KSDataCacheQueue::ClearHistoryKey() { loaders_->histories.Clear(); }

std::shared_ptr<DevParserRule> KSDataCacheQueue::GetRuleData(std::shared_ptr<UnitKey> key) {
  return loaders_->rules.Get(key);
}

std::shared_ptr<DevParserHistory> KSDataCacheQueue::GetHistoryData(std::shared_ptr<UnitKey> key) {
  return loaders_->histories.Get(key);
}

}  // namespace keelstone
