#include "keelstone/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "keelstone/performance.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone {
namespace {

using ::testing::ElementsAre;
using testing::FileText;
using ::testing::HasSubstr;
using testing::LogCapture;
using ::testing::MatchesRegex;
using testing::TempRoot;

void Say(int level, const std::string& text) {
  KS_LOG("FS_Keelstone", "Some::Function", "some", level, "%s", text.c_str());
}

class LoggerTest : public ::testing::Test {
 protected:
  ~LoggerTest() override {
    Logger::Instance().SetCallback({});
    Logger::Instance().SetLevel(kLogInformation);
  }

  std::string Written() const {
    Logger::Instance().Flush();
    return FileText(root_.path() / "log/keelstone.log");
  }

  TempRoot root_;
};

TEST_F(LoggerTest, LineInTheFileSaysWhenWhereAndWhat) {
  Logger::Instance().Log("FS_Keelstone", "second", "A::B", "stem", 12, kLogNotice, "%d %s", 5, "x");
  EXPECT_THAT(Written(),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                           "notice FS_Keelstone A::B stem:12 second: 5 x\n"));
}

TEST_F(LoggerTest, MessageOfAnyLengthIsOneLine) {
  const LogCapture log;
  for (const std::size_t length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 200000U}) {
    const std::string text(length, 'x');
    Say(kLogError, text + '\n');
    EXPECT_EQ(log.Lines().back().message, text + "\\n");
  }
  Say(kLogError, "a\r\n\tb\x01\x1B\x7F\\ \xC3\xA4\xFF \xC2\x85\xE2\x80\xA8\xE2\x80\xAE");
  EXPECT_EQ(log.Lines().back().message,
            "a\\r\\n\\tb\\x01\\x1B\\x7F\\ \xC3\xA4\xFF "
            "\\xC2\\x85\\xE2\\x80\\xA8\\xE2\\x80\\xAE");
}

TEST_F(LoggerTest, CallbackMayLogThrowAndReplaceItself) {
  std::vector<std::string> heard;
  Logger::Instance().SetCallback([&heard](const LogLine& line) {
    heard.emplace_back(line.message);
    if (line.message == "outer") Say(kLogError, "inner");
    if (line.message == "fail") throw std::runtime_error("host");
    if (line.message == "go") Logger::Instance().SetCallback({});
  });
  for (const char* const text : {"outer", "fail", "go", "gone"}) Say(kLogError, text);
  EXPECT_THAT(heard, ElementsAre("outer", "inner", "fail", "go"));
  EXPECT_THAT(Written(), HasSubstr("gone"));
}

TEST_F(LoggerTest, ProcessThatReturnsFromMainHasAllItsLinesInTheFile) {
  const auto speakAndLeave = [] {
    Say(kLogInformation, "last words");
    std::exit(0);
  };
  EXPECT_EXIT(speakAndLeave(), ::testing::ExitedWithCode(0), "");
  EXPECT_THAT(FileText(root_.path() / "log/keelstone.log"), HasSubstr("last words\n"));
}

TEST_F(LoggerTest, FileThatCannotBeWrittenDisturbsNobodyAndComesBack) {
  const auto log = root_.path() / "log";
  testing::WriteFile(log, "no folder");
  Say(kLogError, "lost");
  std::filesystem::remove(log);
  std::filesystem::create_directory(log);
  std::filesystem::create_symlink("/dev/full", log / "keelstone.log");
  for (int i = 0; i < 3; ++i) Say(kLogError, std::string(5000, 'x'));
  std::filesystem::remove(log / "keelstone.log");
  Say(kLogInformation, "before");
  Say(kLogError, "kept");  // errors are in the file at once
  EXPECT_THAT(FileText(log / "keelstone.log"), MatchesRegex(".* before\n.* kept\n"));
}

TEST_F(LoggerTest, FileTurnsOverAndOldOnesGo) {
  const mode_t umask = ::umask(0);
  const std::string text(std::size_t{9} << 20, 'x');
  for (int i = 0; i < 6; ++i) Say(kLogError, std::to_string(i) + text);
  const auto first = [this](const char* name) {
    const std::string line = FileText(root_.path() / "log" / name);
    const std::size_t at = line.find("xx");
    return at == std::string::npos ? ' ' : line[at - 1];
  };
  EXPECT_EQ(first("keelstone.log"), '5');
  EXPECT_EQ(first("keelstone.1.log"), '4');
  EXPECT_EQ(first("keelstone.3.log"), '2');
  for (const auto& entry : std::filesystem::directory_iterator(root_.path() / "log")) {
    EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), kFileRights) << entry.path();
  }
  ::umask(umask);
  EXPECT_FALSE(std::filesystem::exists(root_.path() / "log/keelstone.4.log"));
}

TEST_F(LoggerTest, ScopesLogTheirTimeInnermostFirst) {
  const LogCapture log;
  {
    std::string function = "GetRuleHistoryData";
    const FSPerformance outer(std::string("KSObjectRuleSql"), function, "3 rows\n");
    function = "gone by then";
    const FSPerformance inner("Inner", "Part");
  }
  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_THAT(log.Lines()[0].message, MatchesRegex("Inner :: Part Cost [0-9]+\\.[0-9]{6} ms\\. "));
  const LogCapture::Line line = log.Lines()[1];
  EXPECT_THAT(line.message, MatchesRegex("KSObjectRuleSql :: GetRuleHistoryData Cost "
                                         "[0-9]+\\.[0-9]{6} ms\\. 3 rows\\\\n"));
  EXPECT_EQ(line.module, "Performance");
  EXPECT_EQ(line.function, "FSPerformance::~FSPerformance");
  EXPECT_EQ(line.source, "fsperformance");
  EXPECT_EQ(line.level, kLogInformation);
  Logger::Instance().SetLevel(kLogNotice);
  {
    const FSPerformance off("A", "B");
  }
  EXPECT_EQ(log.Lines().size(), 2U);
}

}  // namespace
}  // namespace keelstone
