#include "platform/compressor.h"

#include <gtest/gtest.h>
#include <zstd.h>

#include <random>

namespace keelstone {
namespace {

std::string Frame(std::string text) {
  EXPECT_TRUE(CompressString(text));
  return text;
}

std::string SomeTable() {
  std::string text;
  for (int i = 0; i < 40; ++i) text += "[\"10.0." + std::to_string(i) + ".0/24\",\"ge-0/0/1\"]\n";
  return text;
}

TEST(CompressorTest, TextsComeBack) {
  std::string random(300000, '\0');
  std::mt19937 engine(7);
  for (char& c : random) c = static_cast<char>(engine());
  for (const std::string& text :
       {std::string(), std::string("\0", 1), SomeTable(), std::string(5000000, 'x'), random}) {
    std::string packed = Frame(text);
    EXPECT_TRUE(DecompressString(packed, static_cast<std::int64_t>(text.size())));
    EXPECT_EQ(packed, text);
  }
  EXPECT_LT(Frame(SomeTable()).size(), SomeTable().size() / 2);
}

TEST(CompressorTest, AnotherLengthIsRefused) {
  const std::string frame = Frame("twelve bytes");
  for (const std::int64_t size : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{11},
                                  std::int64_t{13}, INT64_MAX, INT64_MIN}) {
    std::string text = frame;
    EXPECT_FALSE(DecompressString(text, size)) << size;
    EXPECT_EQ(text, frame);
  }
}

TEST(CompressorTest, DamageIsNoticedAtEveryByte) {
  const std::string text = SomeTable();
  const auto size = static_cast<std::int64_t>(text.size());
  const std::string frame = Frame(text);
  for (std::size_t at = 0; at < frame.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = frame;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
      // One bit of the head has no meaning; a frame must never give another text.
      EXPECT_TRUE(!DecompressString(damaged, size) || damaged == text) << at << ':' << bit;
    }
    std::string inverted = frame;
    inverted[at] = static_cast<char>(~inverted[at]);
    EXPECT_FALSE(DecompressString(inverted, size)) << at;
    std::string cut = frame.substr(0, at);
    EXPECT_FALSE(DecompressString(cut, size)) << at;
  }
  for (const std::string& tail : {std::string("x"), frame}) {
    std::string longer = frame + tail;
    EXPECT_FALSE(DecompressString(longer, size));
  }
}

TEST(CompressorTest, SkippableFrameIsNoEmptyText) {
  std::string skippable("\x50\x2A\x4D\x18\x00\x00\x00\x00", 8);
  EXPECT_FALSE(DecompressString(skippable, 0));
}

TEST(CompressorTest, ShortFrameCannotClaimATerabyte) {
  // A head that promises 2^40 bytes (single segment, 8-byte size) and one empty block.
  std::string hostile("\x28\xB5\x2F\xFD\xE0", 5);
  hostile += std::string("\0\0\0\0\0\1\0\0", 8) + std::string("\1\0\0", 3);
  ASSERT_EQ(ZSTD_getFrameContentSize(hostile.data(), hostile.size()), 1ULL << 40);
  EXPECT_FALSE(DecompressString(hostile, std::int64_t{1} << 40));
}

}  // namespace
}  // namespace keelstone
