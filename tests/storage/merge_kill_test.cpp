#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "tests/storage/merge_fixture.h"
#include "tests/support/file_text.h"
#include "tests/support/killed_child.h"

// An overwrite that ends at any moment, on one thread: the child processes of these tests
// come from a process without other threads.
namespace keelstone::testing {
namespace {

constexpr int kRows = 200;

class MergeBrokenOff : public Merge {
 protected:
  MergeBrokenOff() {
    fresh = MakeSettings("new/settings.db", "new " + std::string(100, 'n'), kRows);
    to = Path("own/settings.db");
    MakeSettings("own/settings.db", "old " + std::string(100, 'o'), kRows);
    old = FileText(to);
    const pid_t writer = ::fork();
    if (writer == 0) {
      CppSQLite3DB db;
      db.open(to);
      db.compileStatement("pragma cache_size=2").execQuery();
      db.execDML("begin transaction;");
      db.execDML("update KSBlockSetting set data = 'half ' || data || data");
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(writer, &status, 0);
    halfWritten = FileText(to);
    journal = FileText(to + "-journal");
  }
  void MakeOld() const {
    std::filesystem::remove_all(Path("own"));
    WriteFile(to, old);
  }
  // The old file as a writer that was killed leaves it: half new, beside its journal.
  void MakeHalfWrittenOld() const {
    std::filesystem::remove_all(Path("own"));
    WriteFile(to, halfWritten);
    WriteFile(to + "-journal", journal);
  }
  static char KindOf(const std::string& content) {
    return content.starts_with("old ") ? 'o' : content.starts_with("new ") ? 'n' : '?';
  }
  // Kills the overwrite before each of its system calls in turn.
  template <class Prepare>
  void KillEverywhere(const Prepare& prepare, const std::string& expected) {
    std::set<char> seen;
    for (int at = 1;; ++at) {
      SCOPED_TRACE(at);
      prepare();
      const ChildEnd end = RunAndKillAt(at, [this] { Deliver(fresh, to); });
      if (end == ChildEnd::kCannotTrace) GTEST_SKIP() << "processes cannot be traced here";
      const std::string content = Content(to);
      const char kind = content == "missing" ? 'm' : KindOf(content);
      ASSERT_NE(expected.find(kind), std::string::npos) << content;
      seen.insert(kind);
      if (end == ChildEnd::kDone) break;
      ASSERT_LT(at, 5000);
    }
    EXPECT_EQ(std::string(seen.begin(), seen.end()), expected);
    // What the killed ones left beside the database, the next overwrite clears away.
    ASSERT_TRUE(Deliver(fresh, to));
    EXPECT_EQ(FilesIn("own"), 1U);
  }

  std::string fresh;
  std::string to;
  std::string old;
  std::string halfWritten;
  std::string journal;
};

TEST_F(MergeBrokenOff, TheLeftOverJournalIsOneThatCounts) {
  MakeHalfWrittenOld();
  ASSERT_NE(halfWritten, old);
  EXPECT_EQ(KindOf(Content(to)), 'o');
  // A file that is only put in its place would be spoilt by it.
  MakeHalfWrittenOld();
  std::filesystem::copy_file(fresh, to, std::filesystem::copy_options::overwrite_existing);
  EXPECT_NE(KindOf(Content(to)), 'n');
}

TEST_F(MergeBrokenOff, AKillAtAnyMomentLeavesTheOldOrTheNewFileWhole) {
  KillEverywhere([this] { MakeOld(); }, "no");
}

TEST_F(MergeBrokenOff, AKillAtAnyMomentLeavesNothingOrTheNewFileWhole) {
  KillEverywhere([this] { std::filesystem::remove_all(Path("own")); }, "mn");
}

TEST_F(MergeBrokenOff, AKillBesideALeftOverJournalNeitherMixesTheFiles) {
  KillEverywhere([this] { MakeHalfWrittenOld(); }, "no");
}

}  // namespace
}  // namespace keelstone::testing
