#include "keelstone/compressor.h"

#include <gtest/gtest.h>

namespace keelstone {
namespace {

std::string Frame(std::string text) {
  EXPECT_TRUE(CompressString(text));
  return text;
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

TEST(CompressorTest, WhatIsNoWholeFrameIsRefused) {
  const std::string text(1000, 'x');
  const std::string frame = Frame(text);
  std::string damaged = frame;
  damaged[frame.size() - 1] = static_cast<char>(~damaged[frame.size() - 1]);  // its checksum
  for (std::string broken : {damaged, frame.substr(1), frame.substr(0, frame.size() - 1),
                             frame + "x", frame + frame, std::string("plain")}) {
    EXPECT_FALSE(DecompressString(broken, static_cast<std::int64_t>(text.size())));
  }
  std::string skippable("\x50\x2A\x4D\x18\x00\x00\x00\x00", 8);
  EXPECT_FALSE(DecompressString(skippable, 0));
}

}  // namespace
}  // namespace keelstone
