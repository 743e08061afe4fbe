#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "keelstone/cleaner.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/ini_reader.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

/// A cleaner that tells of its passes.
class CountingCleaner : public CKSCleaner {
 public:
  ~CountingCleaner() override { Stop(); }
  /// Waits for this many passes in all; false when they have not come within a minute.
  bool WaitForPasses(int count) {
    std::unique_lock lock(countMutex_);
    return passed_.wait_for(lock, std::chrono::minutes(1), [&] { return passes_ >= count; });
  }
  int Passes() {
    const std::lock_guard lock(countMutex_);
    return passes_;
  }
  // Are told the number of the pass.
  std::function<void(int)> beforePass;
  std::function<void(int)> afterWork;

 protected:
  void inner_thread_func() override {
    if (beforePass) beforePass(Passes() + 1);
    CKSCleaner::inner_thread_func();
    if (afterWork) afterWork(Passes() + 1);
    const std::lock_guard lock(countMutex_);
    ++passes_;
    passed_.notify_all();
  }

 private:
  std::mutex countMutex_;
  std::condition_variable passed_;
  int passes_ = 0;
};

class Cleaner : public ::testing::Test {
 protected:
  Cleaner() {
    MakeRuleTable(domain);
    cleaner.SetDomainId(domain);
    cleaner.SetDomainName("name");
    for (const char* source : {"kept", "gone", "gone too"}) {
      ObjectRuleData row = RuleRow("d", "v", Definition("p", "history"));
      row.variableSource = source;
      KSDomainDataManager::Instance()->GetKSDataManager(domain)->SetRuleAlgParam({row});
    }
  }
  std::string Sources(int type, const std::string& table) const {
    return Ask(DomainFile(type, domain),
               "select group_concat(variableSource) from (select "
               "variableSource from " +
                   table + " order by 1)");
  }
  std::string Rules() const { return Sources(kDbObjectRule, "KSObjectRule"); }
  std::string Histories() const { return Sources(kDbObjectHistory, "KSObjectHistory"); }

  TempRoot root;
  std::string domain =
      std::string("cleaner ") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  CountingCleaner cleaner;
};

TEST_F(Cleaner, ARequestRemovesRulesAndHistoriesOfParsersThatAreGone) {
  ASSERT_TRUE(cleaner.Start());
  EXPECT_FALSE(cleaner.Start());
  cleaner.Clean();  // with no parser paths it removes nothing
  ASSERT_TRUE(cleaner.WaitForPasses(1));
  EXPECT_EQ(Rules(), "gone,gone too,kept");
  cleaner.SetCurrAllParserPaths({"kept", "new"});
  cleaner.Clean();
  ASSERT_TRUE(cleaner.WaitForPasses(2));
  EXPECT_EQ(Rules(), "kept");
  EXPECT_EQ(Histories(), "kept");
  cleaner.Stop();
  EXPECT_EQ(cleaner.Passes(), 2);  // it slept otherwise
}

TEST_F(Cleaner, ARequestBeforeTheStartAndOneDuringAPassAreServed) {
  cleaner.SetCurrAllParserPaths({"kept", "gone"});
  cleaner.beforePass = [&](int pass) {
    if (pass > 1) cleaner.SetCurrAllParserPaths({"kept"});
  };
  cleaner.afterWork = [&](int pass) {
    if (pass == 1) cleaner.Clean();
  };
  cleaner.Clean();
  ASSERT_TRUE(cleaner.Start());
  ASSERT_TRUE(cleaner.WaitForPasses(2));
  cleaner.Stop();
  EXPECT_EQ(Rules(), "kept");
}

TEST_F(Cleaner, StopEndsTheSleepAtOnceFromAnyThread) {
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(cleaner.Start());
    std::thread other([&] { cleaner.Stop(); });
    cleaner.Stop();
    other.join();
  }
  EXPECT_EQ(cleaner.Passes(), 0);
  cleaner.Stop();
}

TEST_F(Cleaner, APassMayStopItsOwnThreadAndAnExceptionDoesNotEndIt) {
  const LogCapture log(kLogError);
  cleaner.SetCurrAllParserPaths({"kept"});
  bool thrown = false;
  cleaner.beforePass = [&](int) {
    if (!thrown) {
      thrown = true;
      cleaner.Clean();
      throw std::runtime_error("out of luck");
    }
    cleaner.Stop();
  };
  cleaner.Clean();
  ASSERT_TRUE(cleaner.Start());
  ASSERT_TRUE(cleaner.WaitForPasses(1));
  cleaner.Stop();
  EXPECT_EQ(cleaner.Passes(), 1);
  EXPECT_TRUE(log.Has("c++ exception in rw:out of luck."));
  EXPECT_EQ(Rules(), "kept");
}

}  // namespace
}  // namespace keelstone::testing
