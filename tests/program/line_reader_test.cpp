#include "program/evaluate/line_reader.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

namespace keelstone::host {
namespace {

using ::testing::ElementsAre;

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    out = FileDescriptor(ends[0]);
    in = FileDescriptor(ends[1]);
  }
  FileDescriptor out, in;
};

/// The lines of a text that comes in pieces of `piece` bytes.
std::vector<std::string> LinesOf(const std::string& text, std::size_t piece,
                                 std::size_t maxLine = LineReader::kMaxLine) {
  Pipe pipe;
  std::thread writer([&] {
    for (std::size_t i = 0; i < text.size(); i += piece) {
      const std::string part = text.substr(i, piece);
      EXPECT_EQ(::write(pipe.in.get(), part.data(), part.size()),
                static_cast<ssize_t>(part.size()));
    }
    pipe.in = FileDescriptor();
  });
  const StopRequest stop;
  LineReader reader(pipe.out.get(), stop, maxLine);
  std::vector<std::string> lines;
  std::string_view line;
  for (auto got = reader.Next(line); got != LineReader::Got::kEnd; got = reader.Next(line)) {
    lines.emplace_back(got == LineReader::Got::kLine ? line : "(too long)");
  }
  EXPECT_EQ(reader.lineNumber(), lines.size());
  EXPECT_EQ(reader.position(), text.size());
  writer.join();
  return lines;
}

TEST(LineReader, CutsAtLineFeedsWhereverThePiecesEnd) {
  const std::string text =
      "\xEF\xBB\xBF"
      "one\r\n\n\xEF\xBB\xBFthree\nlast";
  for (const std::size_t piece : {1U, 2U, 5U, 100U}) {
    EXPECT_THAT(LinesOf(text, piece), ElementsAre("one\r", "", "\xEF\xBB\xBFthree", "last"));
  }
  EXPECT_TRUE(LinesOf("", 1).empty());
  EXPECT_THAT(LinesOf("\n", 1), ElementsAre(""));
}

TEST(LineReader, PassesOverLinesBeyondTheBound) {
  const std::string giant(3U << 20U, 'x');
  for (const std::size_t piece : {1U << 10U, 1U << 16U}) {
    EXPECT_THAT(LinesOf("12345\n123456\n\n" + giant + "\n12345\n" + giant, piece, 5),
                ElementsAre("12345", "(too long)", "", "(too long)", "12345", "(too long)"));
    EXPECT_THAT(LinesOf(giant + "\n" + giant + "x\na", piece, giant.size()),
                ElementsAre(giant, "(too long)", "a"));
  }
}

TEST(LineReader, AStopWakesItFromWaiting) {
  const Pipe pipe;
  StopRequest stop;
  LineReader reader(pipe.out.get(), stop);
  std::thread stopper([&] { stop.Request(); });
  std::string_view line;
  EXPECT_EQ(reader.Next(line), LineReader::Got::kStopped);
  stopper.join();
}

}  // namespace
}  // namespace keelstone::host
