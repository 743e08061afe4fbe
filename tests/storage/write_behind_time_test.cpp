#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "keelstone/ini_reader.h"
#include "keelstone/write_behind.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/no_threads.h"
#include "tests/support/temp_root.h"

// A program of its own: how long the worker waits is read once a process.
namespace keelstone::testing {
namespace {

void AddRowsWithoutAWorker() {
  const TempRoot root;
  if (!IniReader::SetInt("Keelstone", "CacheSize", 3, "frontserver.ini")) std::exit(3);
  const NoThreads noThreads;
  DBWriteWrapper* const cache = DBWriteWrapper::Instance();
  for (const char* device : {"a", "b"}) {
    cache->CacheData("domain", device, {}, {HistoryRow(device, "v", "h")});
  }
  if (!cache->HasPendingRows("domain", "b")) std::exit(1);
  cache->CacheData("domain", "c", {}, {HistoryRow("c", "v", "h")});
  const std::string rows =
      Ask(DomainFile(kDbObjectHistory, "domain"), "select count(*) from KSObjectHistory");
  std::exit(rows == "3" && !cache->HasPendingRows("domain", "a") ? 0 : 2);
}

TEST(WriteBehindTimeDeathTest, WithoutAWorkerRowsAreWrittenByThoseWhoAddThem) {
  EXPECT_EXIT(AddRowsWithoutAWorker(), ::testing::ExitedWithCode(0), "");
}

TEST(WriteBehindTime, WithoutATimeToWaitASingleRowIsWrittenUnasked) {
  static const TempRoot root;
  ASSERT_TRUE(IniReader::SetInt("Keelstone", "CacheTime", -5, "frontserver.ini"));
  LogCapture log(kLogProgress);
  DBWriteWrapper::Instance()->CacheData("domain", "unit", {}, {HistoryRow("d", "v", "h")});
  ASSERT_TRUE(log.WaitFor("Force write cache data to data base. SetRuleHistoryData-over: 1"));
  ASSERT_TRUE(log.WaitFor("Force write cache data to data base. End"));
  EXPECT_EQ(Ask(DomainFile(kDbObjectHistory, "domain"), "select HistoryData from KSObjectHistory"),
            "h");
}

}  // namespace
}  // namespace keelstone::testing
