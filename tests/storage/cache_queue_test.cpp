#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <utility>

#include "keelstone/data_cache_queue.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/write_behind.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/no_threads.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

std::shared_ptr<UnitKey> Key(const std::string& device) {
  return std::make_shared<UnitKey>(device, "source", "param");
}

class CacheQueue : public ::testing::Test {
 protected:
  CacheQueue() {
    MakeRuleTable(domain);
    table = KSDomainDataManager::Instance()->GetKSDataManager(domain)->GetObjectRuleTable();
  }
  void Write(const std::string& device, const std::string& param) const {
    table->SetRuleAlgParam({RuleRow(device, "v", Definition(param, "history of " + param))});
  }
  static std::string ParamOf(const std::shared_ptr<DevParserRule>& rules) {
    return rules == nullptr ? "none" : rules->at("").at("v")->ruleParam;
  }
  std::string Param(const std::string& device) { return ParamOf(queue.GetRuleData(Key(device))); }
  std::string History(const std::string& device) {
    const auto histories = queue.GetHistoryData(Key(device));
    return histories == nullptr ? "none" : histories->at("").at("v");
  }
  /// Loads a unit ahead and waits until it is in memory.
  void LoadAhead(const std::string& device) {
    struct Progress {
      bool taken = false;  // the end of an earlier load may still be on its way to the log
      std::promise<void> loaded;
    };
    const auto progress = std::make_shared<Progress>();
    auto loaded = progress->loaded.get_future();
    const LogCapture log(kLogInformation, [progress](const LogCapture::Line& line) {
      if (line.function != "KSDataCacheQueue::LoadRuleData") return;
      if (line.message.starts_with("Get the")) {
        progress->taken = true;
      } else if (std::exchange(progress->taken, false)) {
        progress->loaded.set_value();
      }
    });
    queue.PutRuleKey(Key(device));
    ASSERT_EQ(loaded.wait_for(std::chrono::minutes(1)), std::future_status::ready);
  }

  TempRoot root;
  std::string domain =
      std::string("queue ") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::shared_ptr<KSObjectRuleSql> table;
  KSDataCacheQueue queue;
};

TEST_F(CacheQueue, AUnitIsLoadedForItsCallerAndTheLinesSaySo) {
  Write("d", "p");
  LogCapture log(kLogInformation);
  queue.SetKSObjectRuleSql(table);
  queue.SetKSObjectRuleSql(nullptr);
  EXPECT_EQ(Param("d"), "p");
  EXPECT_EQ(History("d"), "history of p");
  EXPECT_TRUE(log.WaitFor("Search 1 and get 1  rule data."));
  EXPECT_TRUE(log.WaitFor("Search 1 and get 1  history data"));
  for (const char* line : {"Get the rule data 1", "Get the history data 1",
                           "Succeed to get the rule data. : d$$$source$$$param",
                           "Succeed to get the history data. : d$$$source$$$param"}) {
    EXPECT_TRUE(log.Has(line)) << line;
  }
  EXPECT_EQ(queue.GetRuleData(nullptr), nullptr);
  EXPECT_EQ(queue.RulePackageMaxSize(), 8388608);
}

TEST_F(CacheQueue, WithoutAThreadNothingIsWaitedFor) {
  Write("d", "p");
  const LogCapture log(kLogInformation);
  {
    const NoThreads noThreads;
    queue.SetKSObjectRuleSql(table);
    queue.PutRuleKey(Key("d"));
    EXPECT_EQ(Param("d"), "none");
    EXPECT_TRUE(log.Has("Failed to get the rule data for d$$$source$$$param"));
    EXPECT_FALSE(log.Has("Wait too long to get the rule data. : d$$$source$$$param"));
    std::vector<std::shared_ptr<UnitKey>> keys;
    EXPECT_EQ(queue.GetRuleKeys(keys), 0);  // nobody would take them out
  }
  queue.SetKSObjectRuleSql(table);
  EXPECT_EQ(Param("d"), "p");
}

TEST_F(CacheQueue, WhatWasLoadedBeforeALaterWriteIsNeverHandedOut) {
  Write("d", "old");
  Write("other", "old");
  queue.SetKSObjectRuleSql(table);
  const auto changes = std::vector<std::function<void(const std::string&)>>{
      [&](const std::string& param) { Write("d", param); },
      [&](const std::string& param) {
        // Waits to be written.
        DBWriteWrapper::Instance()->CacheData(domain, "d", {RuleRow("d", "v", Definition(param))},
                                              {});
      },
      [&](const std::string& param) {
        Execute((root.path() / "in.db").string(),
                {"drop table if exists KSObjectRule", kCreateRuleTable,
                 "insert into KSObjectRule values('d','','source','param','v',2,1,'','',0,7,'" +
                     param + "',0,0)"});
        EXPECT_TRUE(FSKSDataSyncManager::Instance()->MergeObjectRule(
            (root.path() / "in.db").string(), DomainFile(kDbObjectRule, domain), domain, false));
      }};
  for (std::size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(i);
    ASSERT_NO_FATAL_FAILURE(LoadAhead("d"));
    ASSERT_NO_FATAL_FAILURE(LoadAhead("other"));
    const std::string param = "new " + std::to_string(i);
    changes[i](param);
    EXPECT_EQ(Param("d"), param);
    if (i < 2) {
      LogCapture log(kLogInformation);
      EXPECT_EQ(Param("other"), "old");  // another device's change does not touch it
      EXPECT_FALSE(log.Has("Get the rule data 1"));
    }
  }
  ASSERT_NO_FATAL_FAILURE(LoadAhead("d"));
  table->RemoveRuleDefinitionNoExistSource({"another source"}, kVariableSourceParser);
  EXPECT_EQ(Param("d"), "none");
}

}  // namespace
}  // namespace keelstone::testing
