#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "keelstone/block_setting_table.h"
#include "keelstone/global_setting_table.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/variable_rule_table.h"
#include "storage/tables/table_frame.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

// What every table class promises of a file that is missing, empty, foreign or damaged.
namespace keelstone::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

template <class Table>
struct SettingsCase {
  using Type = Table;
  static constexpr int kNoFile = 1;
  static constexpr int kError = 0;
  static int Read(Table& table) { return table.LoadDBData(); }
};
struct GlobalCase : SettingsCase<KSGlobalSettingSql> {
  static constexpr int kDbType = kDbGlobalSetting;
  static constexpr const char* kFunction = "KSGlobalSettingSql::LoadDBData";
  static constexpr const char* kSource = "ksglobalsettingsql";
  static constexpr const char* kFailed = "select * from KSGlobalSetting operate failed.";
};
struct VariableCase : SettingsCase<KSVariableRuleSql> {
  static constexpr int kDbType = kDbVariableRule;
  static constexpr const char* kFunction = "KSVariableRuleSql::LoadDBData";
  static constexpr const char* kSource = "ksvariablerulesql";
  static constexpr const char* kFailed = "select * from KSVariableRule operate failed.";
};
struct BlockCase : SettingsCase<KSBlockSettingSql> {
  static constexpr int kDbType = kDbBlockSetting;
  static constexpr const char* kFunction = "KSBlockSettingSql::LoadDBData";
  static constexpr const char* kSource = "ksblocksettingsql";
  static constexpr const char* kFailed = "select * from KSBlockSetting operate failed.";
};
struct ObjectCase {
  using Type = KSObjectRuleSql;
  static constexpr int kDbType = kDbObjectRule;
  static constexpr int kNoFile = 0;
  static constexpr int kError = -1;
  static constexpr const char* kFunction =
      "KSObjectRuleSql::GetMultiRuleDefinitionDataByDevParsers";
  static constexpr const char* kSource = "ksobjectrulesql";
  static constexpr const char* kFailed = "KSObjectRule operate failed.";
  static int Read(KSObjectRuleSql& table) {
    std::map<std::string, std::shared_ptr<DevParserRule>> out;
    return table.GetMultiRuleDefinitionDataByDevParsers(
        out, {std::make_shared<UnitKey>("d", "s", "p")}, kVariableSourceParser);
  }
};

template <class Case>
class TableContract : public ::testing::Test {
 protected:
  TableContract() : table("/FSParserData") { table.InitDB("domain"); }

  TempRoot root;
  typename Case::Type table;
};
using Cases = ::testing::Types<GlobalCase, VariableCase, BlockCase, ObjectCase>;
TYPED_TEST_SUITE(TableContract, Cases);

TYPED_TEST(TableContract, MissingFileIsAnsweredAndNotMade) {
  const LogCapture log(kLogNotice);
  EXPECT_EQ(TypeParam::Read(this->table), TypeParam::kNoFile);
  EXPECT_FALSE(std::filesystem::exists(this->root.path() / "data"));
  EXPECT_TRUE(log.Lines().empty());
}

TYPED_TEST(TableContract, AFileThatCannotBeUsedIsLoggedWithItsNameAndOtherDomainsGoOn) {
  const std::string file = this->table.GetDBFile(TypeParam::kDbType);
  typename TypeParam::Type other("/FSParserData");
  other.InitDB("other domain");
  WriteFile(file, std::string(5000, 'x'));
  const LogCapture log(kLogNotice);
  const std::uint64_t writes = GetFailedWriteCount();
  const std::uint64_t reads = GetFailedReadCount();
  EXPECT_EQ(TypeParam::Read(this->table), TypeParam::kError);
  EXPECT_EQ(GetFailedWriteCount(), writes);
  EXPECT_EQ(GetFailedReadCount(), reads + 1);
  EXPECT_THAT(
      log.Messages(),
      ElementsAre(AllOf(HasSubstr(file), HasSubstr("file is not a database")), TypeParam::kFailed));
  for (const auto& line : log.Lines()) {
    EXPECT_EQ(line.level, kLogError);
    EXPECT_EQ(line.function, TypeParam::kFunction);
    EXPECT_EQ(line.source, TypeParam::kSource);
  }
  EXPECT_EQ(TypeParam::Read(other), TypeParam::kNoFile);
  EXPECT_EQ(GetFailedReadCount(), reads + 1);
}

class TableFrameTest : public ::testing::Test {
 protected:
  static constexpr TableOperation kChange{.table = "KSObjectHistory",
                                          .dbType = kDbObjectHistory,
                                          .function = "function",
                                          .source = "source",
                                          .access = TableAccess::kChange};
  TempRoot root;
  KSObjectRuleSql table;
};

TEST_F(TableFrameTest, EveryExceptionRollsBackAndIsLoggedAfterTheLockIsFree) {
  const std::string file = table.GetDBFile(kDbObjectHistory);
  Execute(file, {"create table KSObjectHistory (x)"});
  // A callback that works on the same database would wait for ever under the lock.
  const LogCapture log(kLogNotice, [&](const LogCapture::Line&) {
    EXPECT_EQ(TableFrame::Run(table, kChange, [](CppSQLite3DB&) {}), TableOutcome::kRan);
  });
  const auto failWith = [&](const auto& thrown) {
    return TableFrame::Run(table, kChange, [&](CppSQLite3DB& db) {
      db.execDML("begin transaction;");
      db.execDML("insert into KSObjectHistory values(1)");
      throw thrown;
    });
  };
  EXPECT_EQ(failWith(CppSQLite3Exception(1, "first")), TableOutcome::kFailed);
  EXPECT_EQ(failWith(std::runtime_error("second")), TableOutcome::kFailed);
  EXPECT_EQ(failWith(3), TableOutcome::kFailed);
  EXPECT_EQ(Ask(file, "select count(*) from KSObjectHistory"), "0");
  EXPECT_THAT(log.Messages(),
              ElementsAre("sqlite exception in rw:first.", "KSObjectHistory operate failed.",
                          "c++ exception in rw:second.", "KSObjectHistory operate failed.",
                          "unkown error.", "KSObjectHistory operate failed."));
}

}  // namespace
}  // namespace keelstone::testing
