#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "keelstone/domain_data_manager.h"
#include "settings/rule_settings.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

using ::testing::SizeIs;

std::string HistoryCountSetting(int count) {
  return R"({"name":"KSGeneralSetting","value":{"intRange":{"dataCountHistory":)" +
         std::to_string(count) + "}}}";
}

void WriteSetting(const std::string& domainId, const std::string& row) {
  MakeDataTable(DomainFile(kDbGlobalSetting, domainId), "KSGlobalSetting", {row});
}

TEST(DomainRegistry, ThreadsThatAskAtOnceGetOneManagerLoadedOnce) {
  const TempRoot root;
  WriteSetting("shared", "one line a reading");
  const LogCapture log(kLogError);
  std::vector<std::shared_ptr<KSDataManagerSql>> managers(8);
  std::vector<std::thread> threads;
  for (auto& manager : managers) {
    threads.emplace_back(
        [&] { manager = KSDomainDataManager::Instance()->GetKSDataManager("shared"); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& manager : managers) EXPECT_EQ(manager, managers.front());
  EXPECT_THAT(log.Messages(), SizeIs(1));
}

TEST(DomainRegistry, LogCallbackMayAskForTheDomainThatIsLoading) {
  const TempRoot root;
  WriteSetting("reentrant", "no object");
  bool asked = false;
  const LogCapture log(kLogError, [&](const LogCapture::Line&) {
    asked = KSDomainDataManager::Instance()->GetKSDataManager("reentrant") != nullptr;
  });
  EXPECT_NE(KSDomainDataManager::Instance()->GetKSDataManager("reentrant"), nullptr);
  EXPECT_TRUE(asked);
}

TEST(DomainRuleSettingsDoor, AnswersOneSnapshotUntilTheSettingsAreReadAgain) {
  const TempRoot root;
  WriteSetting("settings", HistoryCountSetting(11));
  const auto first = DomainRuleSettings("settings");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->HistoryDataCount(kIntRange), 11);
  EXPECT_EQ(DomainRuleSettings("settings"), first);
  WriteSetting("settings", HistoryCountSetting(12));
  EXPECT_EQ(DomainRuleSettings("settings"), first);  // nobody has read the file
  const auto manager = KSDomainDataManager::Instance()->GetKSDataManager("settings");
  manager->InvalidateKSGlobalSettingCaches();
  EXPECT_EQ(DomainRuleSettings("settings")->HistoryDataCount(kIntRange), 12);
  EXPECT_EQ(first->HistoryDataCount(kIntRange), 11);
  EXPECT_EQ(DomainRuleSettings("other settings")->HistoryDataCount(kIntRange), 0);
  WriteSetting("settings", HistoryCountSetting(13));
  manager->InitKSGlobalSetting();
  EXPECT_EQ(DomainRuleSettings("settings")->HistoryDataCount(kIntRange), 13);
}

}  // namespace
}  // namespace keelstone::testing
