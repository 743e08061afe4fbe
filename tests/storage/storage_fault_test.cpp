#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "storage/ksobjectrulesql.h"
#include "storage/ksvariablerulesql.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/faulty_vfs.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

// One write, sync or removal fails, later and later until the work gets through.
namespace keelstone::testing {
namespace {

constexpr int kRows = 605;

struct Fault {
  int code;
  FaultyVfs::Duration duration;
};

class StorageFault : public ::testing::TestWithParam<Fault> {
 protected:
  // Runs `work` with every place of the fault in turn; `work` starts from a fresh state,
  // `check` is told whether something failed.
  template <class Prepare, class Work, class Check>
  void FailEverywhere(const Prepare& prepare, const Work& work, const Check& check) {
    const LogCapture quiet(4);
    for (int at = 1;; at += at < 40 ? 1 : 17) {
      SCOPED_TRACE(at);
      prepare();
      const std::uint64_t before = GetFailedWriteCount();
      bool failed = false;
      {
        FaultyVfs vfs;
        vfs.FailAt(at, GetParam().code, GetParam().duration);
        work();
        failed = vfs.HasFailed();
      }
      check(failed, GetFailedWriteCount() - before);
      if (HasFatalFailure() || !failed) return;
      ASSERT_LT(at, 5000);
    }
  }

  TempRoot root;
};

std::vector<ObjectRuleHistoryData> Histories(const std::string& text) {
  std::vector<ObjectRuleHistoryData> rows;
  for (int i = 0; i < kRows; ++i) {
    rows.push_back(HistoryRow("device", std::to_string(10000 + i), text));
  }
  return rows;
}

TEST_P(StorageFault, EachBatchOfHistoriesIsWholeOrAbsent) {
  KSObjectRuleSql table("/FSParserData");
  table.InitDB("domain");
  const std::string file = table.GetDBFile(kDbObjectHistory);
  const auto older = Histories("old");
  const auto newer = Histories(std::string(100, 'n'));
  std::set<int> seen;
  FailEverywhere(
      [&] { table.SetRuleHistoryData(older); },
      [&] { EXPECT_EQ(table.SetRuleHistoryData(newer), -1); },
      [&](bool failed, std::uint64_t counted) {
        DevParserHistory out;  // rolls back what a lost disk has left
        const ObjectDefine device = Object("device");
        ASSERT_EQ(table.GetRuleHistoryData(out, &device, "source", "param", kVariableSourceParser),
                  -1);
        const auto& texts = out[""];
        ASSERT_EQ(texts.size(), static_cast<std::size_t>(kRows));
        int written = 0;
        for (const auto& [name, text] : texts) {
          // Rows are written in this order, so the new ones stand in front.
          const bool isNew = text != "old";
          if (isNew) {
            ASSERT_EQ(name, std::to_string(10000 + written++));
          }
        }
        ASSERT_TRUE(written == 0 || written == 600 || written == kRows) << written;
        seen.insert(written);
        ASSERT_EQ(Ask(file, "pragma integrity_check"), "ok");
        if (written < kRows) {
          ASSERT_EQ(counted, 1U);
        }
        if (!failed) {
          ASSERT_EQ(written, kRows);
        }
      });
  EXPECT_EQ(seen, (std::set<int>{0, 600, kRows}));
}

TEST_P(StorageFault, AddedDefinitionsAreInMemoryOnlyWhenTheyAreOnDisk) {
  const auto definition = [](const std::string& name) {
    return RuleDefinitionData(kRuleTypeNone, 2, "", "source", name, 1, "");
  };
  std::unique_ptr<KSVariableRuleSql> table;
  bool added = false;
  FailEverywhere(
      [&] {
        std::filesystem::remove_all(root.path() / "data");
        table = std::make_unique<KSVariableRuleSql>("/FSParserData");
        table->InitDB("domain");
      },
      [&] {
        added = table->AddRuleDefinitions({definition("a"), definition("b")});
      },
      [&](bool failed, std::uint64_t counted) {
        ASSERT_EQ(counted, added ? 0U : 1U);
        if (!failed) {
          ASSERT_TRUE(added);
        }
        KSVariableRuleSql reread("/FSParserData");
        reread.InitDB("domain");
        ASSERT_EQ(reread.LoadDBData(), 1);
        for (const char* name : {"a", "b"}) {
          ASSERT_EQ(table->IsExistRuleDefinition("source", name, kVariableSourceParser), added);
          ASSERT_EQ(reread.IsExistRuleDefinition("source", name, kVariableSourceParser), added);
        }
      });
}

INSTANTIATE_TEST_SUITE_P(Faults, StorageFault,
                         ::testing::Values(Fault{SQLITE_IOERR, FaultyVfs::Duration::kOnce},
                                           Fault{SQLITE_FULL, FaultyVfs::Duration::kOnce},
                                           Fault{SQLITE_IOERR, FaultyVfs::Duration::kForever}),
                         [](const auto& info) {
                           return std::string(info.param.code == SQLITE_FULL ? "Full" : "Error") +
                                  (info.param.duration == FaultyVfs::Duration::kOnce ? "Once"
                                                                                     : "Forever");
                         });

}  // namespace
}  // namespace keelstone::testing
