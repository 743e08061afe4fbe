#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/clock.h"
#include "keelstone/rule_sqlite_test.h"
#include "keelstone/test_api.h"
#include "keelstone/write_behind.h"
#include "tests/support/log_capture.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr std::int64_t kNow = 1700000000;

class TestApi : public ::testing::Test {
 protected:
  TestApi() {
    Clock::SetSource([] { return kNow * 1000; });
    domain.files().AddVariableRule({.source = "src", .name = "v"});
    domain.manager()->InvalidateKSVariableRuleCaches();
  }
  ~TestApi() override { Clock::SetSource(nullptr); }

  /// What a call prints.
  std::string Evaluate(const std::string& text, std::int32_t typeCode, std::int64_t time,
                       bool onDemand = false, const std::string& source = "src") {
    ::testing::internal::CaptureStdout();
    KeelstoneTestAPI::TestDynamicRule(domain.id(), "r1", "v", text, typeCode, time, onDemand,
                                      source);
    std::string printed = ::testing::internal::GetCapturedStdout();
    DBWriteWrapper::Instance()->WriteDomain(domain.id());
    return printed;
  }
  std::vector<std::string> Histories() {
    return domain.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  }
  void Block() {
    domain.files().AddBlock({"r1"}, kNow - 10, kNow + 10);
    domain.manager()->InvalidateKSBlockSettingCaches();
  }

  TunedDomain domain;
};

TEST_F(TestApi, AValueIsEvaluatedAndWhatWasLearnedIsStored) {
  EXPECT_EQ(Evaluate("5", 1, kNow), "");
  ASSERT_EQ(Histories().size(), 1U);
  EXPECT_NE(Histories()[0].find(std::to_string(kNow)), std::string::npos);
  EXPECT_EQ(Evaluate("6", 1, kNow + 5000, true), "");  // on demand nothing is learned
  EXPECT_EQ(Histories()[0].find(std::to_string(kNow + 5000)), std::string::npos);
  EXPECT_EQ(Evaluate("6", 1, kNow, false, "unknown source"), "IsDefineRule = False\n");
}

TEST_F(TestApi, InABlockPeriodNothingIsLearned) {
  EXPECT_FALSE(KeelstoneTestAPI::TestBlockTime(domain.id(), "r1", kNow, "src"));
  Block();
  EXPECT_TRUE(KeelstoneTestAPI::TestBlockTime(domain.id(), "r1", kNow, "src"));
  EXPECT_FALSE(KeelstoneTestAPI::TestBlockTime(domain.id(), "r2", kNow, "src"));
  EXPECT_EQ(Evaluate("5", 1, kNow), "device is in block time, just update golden value.\n");
  EXPECT_TRUE(Histories().empty());
  EXPECT_EQ(Evaluate("5", 1, kNow, true), "");
  EXPECT_FALSE(KeelstoneTestAPI::TestIntervalTime(domain.id(), "r1", "",
                                                  std::numeric_limits<std::int64_t>::max(), "src"));
}

TEST_F(TestApi, TheTypeCodeDecidesTheDataType) {
  const auto dataType = [&](int typeCode) {
    domain.files().Execute(kDbObjectHistory, "delete from KSObjectHistory");
    domain.files().Execute(kDbVariableRule, "delete from KSVariableRule");
    domain.files().AddVariableRule({.source = "src", .name = "v", .dataType = typeCode});
    domain.manager()->InvalidateKSVariableRuleCaches();
    const LogCapture log(kLogError);
    Evaluate("5", typeCode, kNow);
    if (log.Has("nullptr == pData")) return std::string("refused");
    const auto types = domain.files().Select(
        kDbObjectHistory, "select json_extract(HistoryData, '$.dataType') from KSObjectHistory");
    return types.size() == 1 ? types[0] : std::string("nothing stored");
  };
  EXPECT_EQ(dataType(1), "1");
  EXPECT_EQ(dataType(25), "2");
  for (const int code : {2, 23}) EXPECT_EQ(dataType(code), "3") << code;
  for (const int code : {3, 4, 5, 6, 7, 8, 24}) EXPECT_EQ(dataType(code), "4") << code;
  EXPECT_EQ(dataType(11), "5");
  for (const int code : {9, 10, 12, 22, 26, -1}) EXPECT_EQ(dataType(code), "refused") << code;
}

// ---- Golden values

TEST(GoldenValues, RowsComeIntoTheDescribedFileFromAnyThread) {
  const TempRoot root;
  TestKSRuleSqlit golden("some\\where");
  EXPECT_FALSE(std::filesystem::exists(root.path() / "data"));
  ASSERT_TRUE(golden.InitTable());
  ASSERT_TRUE(golden.InitTable());
  const std::int64_t late = std::numeric_limits<std::int64_t>::max();
  std::thread other([&] {
    for (int i = 0; i < 20; ++i) golden.SaveGoldenValue("dom", "", "dev", "it's", "", i);
  });
  for (int i = 0; i < 20; ++i) golden.SaveGoldenValue("dom", "parser", "dev", "var", "7", late);
  other.join();
  CppSQLite3DB db;
  db.open((root.path() / "data/FSParserData/some/where/KSGoldenValue.db").string());
  auto select = db.compileStatement(
      "select domain || parser || devName || varName || goldenValue || liveTime, count(*), max(id) "
      "from KSGoldenValue where parser <> ''");
  auto row = select.execQuery();
  EXPECT_EQ(row.getStringField(0), "domparserdevvar7" + std::to_string(late));
  EXPECT_EQ(row.getIntField(1), 20);
  EXPECT_LE(row.getIntField(2), 40);
}

}  // namespace
}  // namespace keelstone::testing
