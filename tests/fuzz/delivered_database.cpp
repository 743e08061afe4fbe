// The bytes of a file that is delivered as a database of each type. Each merge answers, and
// every database of the domain is sound afterwards, whatever was delivered.
#include <filesystem>
#include <fstream>

#include "keelstone/cppsqlite3.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/interface_translator.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

using Merge = bool (FSKSDataSyncManager::*)(const std::string&, const std::string&,
                                            const std::string&, bool);

struct Delivery {
  EnumDbType type;
  Merge merge;
};

constexpr Delivery kDeliveries[] = {
    {kDbGlobalSetting, &FSKSDataSyncManager::MergeGlobalSetting},
    {kDbVariableRule, &FSKSDataSyncManager::MergeVariableRule},
    {kDbBlockSetting, &FSKSDataSyncManager::MergeBlockSetting},
    {kDbInterfaceType, &FSKSDataSyncManager::MergeInterfaceType},
    {kDbObjectRule, &FSKSDataSyncManager::MergeObjectRule},
};

void ExpectSound(const std::string& file) {
  CppSQLite3DB db;
  db.open(file, CppSQLite3DB::Mode::kReadWrite);
  auto statement = db.compileStatement("pragma integrity_check");
  KS_PROMISE(statement.execQuery().getStringField(0) == "ok");
}

void UseDomain(Home& home) {
  const auto manager = home.manager();
  RuleDefinitionData definition;
  manager->GetRuleDefinitionData(definition, "v", "src", {}, kVariableSourceParser);
  ObjectDefine object;
  object.deviceName = "r1";
  std::vector<std::pair<std::int64_t, std::int64_t>> periods;
  manager->GetBlockTimeByObjectId(periods, &object);
  DevParserRule rules;
  manager->GetRuleDefinitionDataByDev(rules, &object, "src", "prm", kVariableSourceParser);
  InterfaceTranslator::Instance()->Translate(home.domainId(), "eth0");
  RuleDefinitionData added;
  added.variableSource = "src";
  added.variableName = "added";
  static_cast<void>(manager->AddRuleDefinitions({added}));
}

void Deliver(const std::string& bytes) {
  static Home home;
  static const std::string from = VXFileSystem::GetSystemRootFolder() + "delivered.db";
  std::ofstream(from, std::ios::binary | std::ios::trunc) << bytes;
  for (const char* suffix : {"-journal", "-wal", "-shm"}) std::filesystem::remove(from + suffix);
  bool isAnyMerged = false;
  for (const Delivery& delivery : kDeliveries) {
    const std::string to = home.files().Path(delivery.type);
    const bool isMerged =
        (FSKSDataSyncManager::Instance()->*delivery.merge)(from, to, home.domainId(), true);
    isAnyMerged = isAnyMerged || isMerged;
    if (isMerged) ExpectSound(to);
  }
  if (!isAnyMerged) return;
  UseDomain(home);
  for (const Delivery& delivery : kDeliveries) {
    std::filesystem::remove(home.files().Path(delivery.type));
  }
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::Deliver(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
