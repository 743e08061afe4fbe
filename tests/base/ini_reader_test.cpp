#include "keelstone/ini_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone {
namespace {

using ::testing::AllOf;
using testing::FileText;
using ::testing::HasSubstr;
using testing::LogCapture;
using testing::WriteFile;

class IniReaderTest : public ::testing::Test {
 protected:
  void Write(const std::string& text, const char* name = "a.ini") {
    WriteFile(root_.path() / "conf" / name, text);
  }
  std::string Text() const { return FileText(root_.path() / "conf/a.ini"); }
  static int Get(const std::string& key) {
    return IniReader::GetInt("Keelstone", key, -7, "a.ini");
  }
  /// Makes the file look as if it had been written some time ago.
  void Age(int seconds) const {
    const auto then = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(root_.path() / "conf/a.ini",
                                     then - std::chrono::seconds(seconds));
  }

  testing::TempRoot root_;
};

TEST_F(IniReaderTest, OverrideComesBeforeBaseAndDefaultLast) {
  const auto get = [](const char* key) {
    return IniReader::GetInt("Keelstone", key, -7, "fix.ini", "base.ini");
  };
  EXPECT_EQ(get("CacheSize"), -7);
  Write("[Keelstone]\nCacheSize=1\nCacheTime=2\n", "base.ini");
  EXPECT_EQ(get("CacheSize"), 1);
  Write("[Upload]\nCacheTime=4\n[Keelstone]\nCacheSize=3\n", "fix.ini");
  EXPECT_EQ(get("CacheSize"), 3);
  EXPECT_EQ(get("CacheTime"), 2);
  EXPECT_EQ(get("Else"), -7);
}

TEST_F(IniReaderTest, ReadsWhatPeopleWrite) {
  const std::string longLine = "; " + std::string(1000, '-');
  Write("\xEF\xBB\xBF[keelstone]\r\n# comment\r\nCacheSize = 10 ; ten\r\n\tCacheTime : -20\r\n" +
        longLine + "\r\n\r\n  bachcount=+30\rIntervalTime=1\n[Other]\nIntervalTime=2\n" +
        "[ KEELSTONE ]\nintervaltime =  3\nno entry\nLast=4");
  EXPECT_EQ(Get("CacheSize"), 10);
  EXPECT_EQ(Get("CacheTime"), -20);
  EXPECT_EQ(Get("BachCount"), 30);
  EXPECT_EQ(Get("IntervalTime"), 3) << "the last of two counts";
  EXPECT_EQ(Get("Last"), 4);
  EXPECT_EQ(IniReader::GetInt("OTHER", "INTERVALTIME", 0, "a.ini"), 2);
}

// What stat shows decides: a change is seen, and a file that looks the same is not read again.
TEST_F(IniReaderTest, ReadsWhatHasChanged) {
  const auto path = root_.path() / "conf/a.ini";
  Write("[Keelstone]\nKey=1\n");
  Age(100);
  EXPECT_EQ(Get("Key"), 1);
  const auto time = std::filesystem::last_write_time(path);
  Write("[Keelstone]\nKey=2\n");
  std::filesystem::last_write_time(path, time);
  EXPECT_EQ(Get("Key"), 1);
  Age(50);
  EXPECT_EQ(Get("Key"), 2);
  std::filesystem::remove(path);
  EXPECT_EQ(Get("Key"), -7);
  std::filesystem::create_directory(path);
  EXPECT_EQ(Get("Key"), -7);
}

TEST_F(IniReaderTest, MalformedValueGivesTheDefaultAndOneErrorLine) {
  for (const std::string value : {"", "x", "1x", "1.5", "0x10", "1 2", "2147483648", "-2147483649",
                                  "99999999999999999999", "--1", "+-1", "+"}) {
    Write("[Keelstone]\nKey=" + value + "\nOther=5\n");
    const LogCapture log;
    EXPECT_EQ(Get("Key"), -7) << value;
    EXPECT_EQ(Get("Key"), -7) << value;
    EXPECT_EQ(Get("Other"), 5);
    ASSERT_EQ(log.Lines().size(), 1U) << value;
    EXPECT_EQ(log.Lines()[0].level, kLogError);
    EXPECT_EQ(log.Lines()[0].module, "FS_Keelstone");
    EXPECT_THAT(log.Lines()[0].message,
                AllOf(HasSubstr("a.ini"), HasSubstr("[Keelstone] Key = \"" + value + '"')));
  }
  Write("[Keelstone]\nMost=2147483647\nLeast=-2147483648\n");
  EXPECT_EQ(Get("Most"), INT32_MAX);
  EXPECT_EQ(Get("Least"), INT32_MIN);
}

TEST_F(IniReaderTest, SetIntChangesOneValueAndNothingElse) {
  struct Case {
    const char* before;
    const char* after;
  };
  const Case cases[] = {
      {"", "[Keelstone]\nKey = 5\n"},
      {"; c\n[Other]\nKey=1", "; c\n[Other]\nKey=1\n[Keelstone]\nKey = 5\n"},
      {"[Keelstone]\nkey=1 ; why\n\n[Other]\n", "[Keelstone]\nkey=5 ; why\n\n[Other]\n"},
      {"[Keelstone]\nKey=\nB=2\n", "[Keelstone]\nKey= 5\nB=2\n"},
      {"[Keelstone]\nKey=1\n[Keelstone]\nKey=2\n", "[Keelstone]\nKey=1\n[Keelstone]\nKey=5\n"},
      {"[Keelstone]\r\nA=1\r\n\r\n; next\r\n[Other]\r\n",
       "[Keelstone]\r\nA=1\r\nKey = 5\r\n\r\n; next\r\n[Other]\r\n"},
      {"\xEF\xBB\xBF[Keelstone]\nB=1\n", "\xEF\xBB\xBF[Keelstone]\nB=1\nKey = 5\n"},
      {"[KeyS]\n;[Keelstone]\n;Key=3\n", "[KeyS]\n;[Keelstone]\n;Key=3\n[Keelstone]\nKey = 5\n"},
      // Heads that are not closed before the line or a comment ends, and a name that is cut.
      {"[Keelstone\nA=1\n", "[Keelstone\nA=1\n[Keelstone]\nKey = 5\n"},
      {"[Keelstone ;]\nA=1\n", "[Keelstone ;]\nA=1\n[Keelstone]\nKey = 5\n"},
      {"[                                                  Keelstone]\nA=1\n",
       "[                                                  Keelstone]\nA=1\n[Keelstone]\nKey = "
       "5\n"},
  };
  for (const Case& one : cases) {
    Write(one.before);
    EXPECT_TRUE(IniReader::SetInt("Keelstone", "Key", 5, "a.ini"));
    EXPECT_EQ(Text(), one.after) << one.before;
    EXPECT_EQ(Get("Key"), 5);
  }
}

TEST_F(IniReaderTest, SetIntKeepsRightsAndLinks) {
  using std::filesystem::perms;
  const auto real = root_.path() / "elsewhere/real.ini";
  WriteFile(real, "[Keelstone]\nKey=1\n");
  std::filesystem::permissions(real, perms::owner_read | perms::owner_write);
  std::filesystem::create_directory(root_.path() / "conf");
  std::filesystem::create_symlink(real, root_.path() / "conf/a.ini");
  EXPECT_TRUE(IniReader::SetInt("Keelstone", "Key", 5, "a.ini"));
  EXPECT_TRUE(std::filesystem::is_symlink(root_.path() / "conf/a.ini"));
  EXPECT_EQ(FileText(real), "[Keelstone]\nKey=5\n");
  EXPECT_EQ(std::filesystem::status(real).permissions(), perms::owner_read | perms::owner_write);
}

TEST_F(IniReaderTest, WritersAndReadersTogetherLoseNothing) {
  constexpr int kRounds = 25;
  Write("[Keelstone]\nKey0=0\nKey1=0\nKey2=0\n; end\n");
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([i] {
      const std::string key = "Key" + std::to_string(i);
      for (int round = 1; round <= kRounds; ++round) {
        EXPECT_TRUE(IniReader::SetInt("Keelstone", key, round, "a.ini"));
        EXPECT_EQ(Get(key), round) << "another writer put an old value back";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Text(), "[Keelstone]\nKey0=25\nKey1=25\nKey2=25\n; end\n");
}

}  // namespace
}  // namespace keelstone
