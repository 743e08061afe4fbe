#include <gtest/gtest.h>

#include "platform/ini_reader.h"
#include "storage/dbwritewrapper.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

// A program of its own: how long the worker waits is read once a process.
namespace keelstone::testing {
namespace {

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
