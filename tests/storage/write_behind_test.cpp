#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "keelstone/domain_data_manager.h"
#include "keelstone/ini_reader.h"
#include "keelstone/write_behind.h"
#include "storage/resource_adaptor.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

using ::testing::ElementsAre;

constexpr int kCacheSize = 3000;
constexpr const char* kFlush = "Force write cache data to data base. ";

// The cache is one for the process and outlives every test, and so does its root folder.
class WriteBehind : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    static const TempRoot root;
    ASSERT_TRUE(Set("CacheSize", kCacheSize));
    ASSERT_TRUE(Set("CacheTime", 86400));  // only a full cache wakes the worker
  }
  static bool Set(const char* key, int value) {
    return IniReader::SetInt("Keelstone", key, value, "fix_frontserver.ini");
  }

  WriteBehind() { MakeRuleTable(domain); }
  ~WriteBehind() override { cache->ForceWriteDisk(); }

  void AddRule(const std::string& variable, std::shared_ptr<RuleDefinitionData> definition,
               const std::string& interface = "") {
    cache->CacheData(domain, "unit", {RuleRow("d", variable, std::move(definition), interface)},
                     {});
  }
  void AddHistory(const std::string& variable, const std::string& text,
                  const std::string& interface = "") {
    cache->CacheData(domain, "unit", {}, {HistoryRow("d", variable, text, interface)});
  }
  std::shared_ptr<RuleDefinitionData> Rule(const std::string& variable,
                                           const std::string& interface = "") const {
    return cache->GetCachedRuleDefinition(domain, "unit", interface, "source", "param", variable);
  }
  std::string History(const std::string& variable, const std::string& interface = "") const {
    std::string text = "none";
    const int found =
        cache->GetCachedHistoryData(domain, "unit", interface, "source", "param", variable, text);
    EXPECT_EQ(found == 1, text != "none");
    return text;
  }
  std::string OnDisk(const std::string& variable) const {
    return Ask(DomainFile(kDbObjectHistory, domain),
               "select HistoryData from KSObjectHistory where variableName='" + variable + "'");
  }
  std::string RuleOnDisk(const std::string& variable) const {
    return Ask(DomainFile(kDbObjectRule, domain),
               "select ruleAlgParameter from KSObjectRule where variableName='" + variable + "'");
  }

  DBWriteWrapper* cache = DBWriteWrapper::Instance();
  std::string domain = ::testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(WriteBehind, RowsHandedOverAgainLeaveOutWhatHasGotNewerRowsSince) {
  auto handed = cache->HandOver(
      domain, "unit", {RuleRow("d", "v", Definition("a")), RuleRow("d", "w", Definition("a"))},
      {HistoryRow("d", "v", "a"), HistoryRow("d", "w", "a")});
  EXPECT_EQ(cache->WriteDomain(domain), 4);
  cache->HandOverAgain(domain, "unit", *handed);
  EXPECT_EQ(cache->WriteDomain(domain), 4);
  const auto other = cache->HandOver(domain, "unit", {}, {HistoryRow("d", "w", "b")});
  EXPECT_EQ(cache->WriteDomain(domain), 1);
  cache->HandOverAgain(domain, "unit", *handed);
  EXPECT_EQ(History("v"), "a");
  EXPECT_EQ(History("w"), "none");
  cache->HandOverAgain(domain, "unit", *other);
  handed.reset();
  EXPECT_EQ(cache->WriteDomain(domain), 3);
  EXPECT_EQ(OnDisk("w"), "b");
}

TEST_F(WriteBehind, AUnitsMarkStandsFromHandingOverToDisk) {
  const PendingMark mark = cache->MarkOf(domain, "unit");
  EXPECT_FALSE(mark.MayHaveRows());
  AddHistory("v", "one");
  AddHistory("v", "two");
  EXPECT_TRUE(mark.MayHaveRows());
  EXPECT_TRUE(cache->MarkOf(domain, "unit").MayHaveRows());
  EXPECT_FALSE(cache->MarkOf(domain, "another unit").MayHaveRows());
  cache->WriteDomain(domain);
  EXPECT_FALSE(mark.MayHaveRows());
}

TEST_F(WriteBehind, FlushWritesBatchesInOrderAndSaysSo) {
  ASSERT_TRUE(Set("BachCount", 1000));
  std::vector<ObjectRuleData> rules;
  std::vector<ObjectRuleHistoryData> history;
  for (int i = 0; i < 2500; ++i) rules.push_back(RuleRow("d", std::to_string(i), Definition("p")));
  for (int i = 0; i < 100; ++i) history.push_back(HistoryRow("d", std::to_string(i), "h"));
  cache->CacheData(domain, "unit b", std::move(rules), {});
  cache->CacheData(domain, "unit a", {RuleRow("d", "7", Definition("before unit b"))}, history);
  const LogCapture log(kLogProgress);
  cache->ForceWriteDisk();
  std::vector<std::string> lines;
  for (const auto& line : log.Lines()) {
    if (line.source == "dbwritewrapper") {
      EXPECT_EQ(line.function, "DBWriteWrapper::ForceWriteDisk");
      EXPECT_EQ(line.level, kLogProgress);
      lines.push_back(line.message.substr(std::string(kFlush).size()));
    }
  }
  EXPECT_THAT(lines,
              ElementsAre("Begin", "SetRuleAlgParam-batch: 1000", "SetRuleAlgParam-batch: 1000",
                          "SetRuleAlgParam-over: 501", "SetRuleHistoryData-over: 100", "End"));
  EXPECT_EQ(RuleOnDisk("7"), "p");
  ASSERT_TRUE(Set("BachCount", 10000));
}

TEST_F(WriteBehind, LostRowsAreCountedAndNotKept) {
  domain = "no rule table";
  const std::uint64_t failed = GetFailedWriteCount();
  AddRule("v", Definition("p"));
  EXPECT_EQ(cache->WriteDomain(domain), 1);
  EXPECT_EQ(GetFailedWriteCount(), failed + 1);
  EXPECT_EQ(Rule("v"), nullptr);
}

TEST_F(WriteBehind, RowsOfARunningFlushAreServedFirstAndWaitedFor) {
  AddRule("v", Definition("taken"));
  AddHistory("v", "taken");
  const auto record = FSResourceAdaptor::Instance().RegisterTable(GuidFromText(domain),
                                                                  kDbObjectRule, kDbObjectRule);
  LogCapture log(kLogProgress);
  std::thread flush;
  std::future<std::string> waited;
  {
    const MutexLock hold(record->mutex);  // the flush cannot get past the rules
    flush = std::thread([&] { cache->ForceWriteDisk(); });
    ASSERT_TRUE(log.WaitFor(std::string(kFlush) + "SetRuleAlgParam-over: 1"));
    AddRule("v", Definition("newer"));
    AddHistory("v", "newer");
    AddHistory("w", "only newer");
    EXPECT_EQ(Rule("v")->ruleParam, "taken");
    EXPECT_EQ(History("v"), "taken");
    EXPECT_EQ(History("w"), "only newer");
    waited = std::async(std::launch::async, [&] {
      EXPECT_EQ(cache->WriteDomain(domain), 3);
      return OnDisk("v");
    });
    EXPECT_EQ(waited.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  }
  EXPECT_EQ(waited.get(), "newer");
  flush.join();
  EXPECT_EQ(RuleOnDisk("v"), "newer");
  EXPECT_EQ(History("v"), "none");
}

TEST_F(WriteBehind, LogCallbackMayUseTheCacheInsideAFlush) {
  AddHistory("v", "one");
  std::atomic<int> calls{0};
  const LogCapture log(kLogProgress, [&](const LogCapture::Line& line) {
    if (line.source != "dbwritewrapper") return;
    ++calls;
    AddHistory("w", "from the callback");
    EXPECT_EQ(cache->WriteDomain(domain), 0);
    cache->ForceWriteDisk();
  });
  cache->ForceWriteDisk();
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(OnDisk("v"), "one");
}

TEST_F(WriteBehind, AFullCacheWakesTheWorker) {
  LogCapture log(kLogProgress);
  std::vector<ObjectRuleHistoryData> rows;
  for (int i = 0; i < kCacheSize - 1; ++i) rows.push_back(HistoryRow("d", std::to_string(i), "h"));
  cache->CacheData(domain, "unit", {}, std::move(rows));
  EXPECT_FALSE(log.Has(std::string(kFlush) + "Begin"));
  EXPECT_EQ(History("0"), "h");
  AddHistory("last", "h");
  ASSERT_TRUE(log.WaitFor(std::string(kFlush) + "SetRuleHistoryData-over: 3000"));
  ASSERT_TRUE(log.WaitFor(std::string(kFlush) + "End"));
  EXPECT_EQ(OnDisk("last"), "h");
}

// Threads hand over counting texts, each of a variable of its own, while others flush. At
// every moment the newest text is pending or on disk, and what is served never goes back.
TEST_F(WriteBehind, NoRowIsEverInNeitherPlaceAndOrderHolds) {
  constexpr int kWriters = 3;
  constexpr int kSteps = 150;
  const auto manager = KSDomainDataManager::Instance()->GetKSDataManager(domain);
  const auto shared = Definition("0");  // written by the flushes while the writers change it
  std::atomic<int> running{kWriters};
  std::vector<std::thread> threads;
  for (int writer = 0; writer < kWriters; ++writer) {
    threads.emplace_back([&, variable = "v" + std::to_string(writer)] {
      int served = 0;
      const ObjectDefine device = Object("d");
      for (int step = 1; step <= kSteps; ++step) {
        {
          const DefinitionLock lock(*shared);
          shared->ruleParam = std::string(static_cast<std::size_t>(step), 'x');
        }
        cache->CacheData(domain, "unit", {RuleRow("d", "shared", shared)},
                         {HistoryRow("d", variable, std::to_string(step))});
        std::string text;
        if (cache->GetCachedHistoryData(domain, "unit", "", "source", "param", variable, text) ==
            0) {
          DevParserHistory stored;
          manager->GetRuleHistoryData(stored, &device, "source", "param", kVariableSourceParser);
          text = stored[""][variable];
          ASSERT_EQ(text, std::to_string(step));
        }
        ASSERT_GE(std::stoi(text), served);
        served = std::stoi(text);
        if (step % 50 == 0) cache->WriteDomain(domain);
      }
      --running;
    });
  }
  threads.emplace_back([&] {
    while (running > 0) cache->ForceWriteDisk();
  });
  threads.emplace_back([&] {
    while (running > 0) cache->WriteDomain(domain);
  });
  for (std::thread& thread : threads) thread.join();
  cache->WriteDomain(domain);
  for (int writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(OnDisk("v" + std::to_string(writer)), std::to_string(kSteps));
  }
}

}  // namespace
}  // namespace keelstone::testing
