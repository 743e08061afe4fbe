#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "keelstone/rule_global_setting.h"
#include "keelstone/table_base.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/domain_files.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;
constexpr const char* kNoDatabase = "this is no database, and long enough to be none in any case";

/// A unit with five values of one variable on disk.
class UnreadableStore : public ::testing::Test {
 protected:
  static DomainFiles Learned(const std::string& domainId) {
    DomainFiles files(domainId);
    files.SetGeneralSettings(DefaultGeneralSettings().toString());
    files.AddVariableRule({"src", "v"});
    const Unit unit{domainId};
    for (int i = 0; i < 5; ++i) {
      const auto run = unit.Start(kNow + i * 2000);
      EXPECT_TRUE(run->ProcessVariable(Value("v", KSDataInt64, "7")));
      unit.Finish(*run);
    }
    return files;
  }

  /// One more value, far later, on copies of the files as a new process meets them.
  static bool EvaluateLater(const DomainFiles& files) {
    const Unit unit{files.domainId()};
    const auto run = unit.Start(kNow + 400000);
    const bool accepted = run->ProcessVariable(Value("v", KSDataInt64, "7"));
    unit.Finish(*run);
    return accepted;
  }

  TempRoot root_;
};

TEST_F(UnreadableStore, IsNotLearnedOver) {
  const DomainFiles learned = Learned("unreadable-0");
  const auto history = learned.Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  const auto rules = learned.Select(kDbObjectRule, "select ruleAlgParameter from KSObjectRule");
  ASSERT_EQ(rules.size(), 1U);
  int copy = 1;
  for (const EnumDbType damaged : {kDbObjectHistory, kDbObjectRule, kDbGlobalSetting}) {
    SCOPED_TRACE(damaged);
    DomainFiles files = learned.CopyAs("unreadable-" + std::to_string(copy++));
    std::ofstream(files.Path(damaged), std::ios::trunc) << kNoDatabase;

    const std::uint64_t failedBefore = GetFailedReadCount();
    EXPECT_FALSE(EvaluateLater(files));
    EXPECT_GT(GetFailedReadCount(), failedBefore);
    if (damaged != kDbObjectHistory) {
      EXPECT_EQ(files.Select(kDbObjectHistory, "select HistoryData from KSObjectHistory"), history);
    }
    if (damaged != kDbObjectRule) {
      EXPECT_EQ(files.Select(kDbObjectRule, "select ruleAlgParameter from KSObjectRule"), rules);
    }
  }
  EXPECT_TRUE(EvaluateLater(learned.CopyAs("unreadable-whole")));
}

}  // namespace
}  // namespace keelstone::testing
