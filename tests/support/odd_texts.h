#ifndef KEELSTONE_TESTS_SUPPORT_ODD_TEXTS_H
#define KEELSTONE_TESTS_SUPPORT_ODD_TEXTS_H

#include <random>
#include <string>
#include <vector>

namespace keelstone::testing {

/// What devices send and JSON's own characters in every unhappy place.
inline const std::vector<std::string>& OddTexts() {
  using namespace std::string_literals;
  static const std::vector<std::string> texts = {
      "",
      "\n",
      "up\r\n down",
      "\"",
      "\\\\",
      "\\\"",
      "\"}",
      "\"},{\"liveTime\":1,\"dataValue\":\"x",
      "}",
      "}{",
      ",",
      "\\u0041",
      "/",
      "/* nor this */",
      "\0"s,
      "a\0b\0"s,
      "\x01\x1f\x7f",
      "\b\f",
      "\xff\xfe",
      "\xc3(",
      "\xc0\xaf",
      "\xed\xa0\x80",
      "\xf4\x90\x80\x80",
      "\xe2\x82",
      "gr\xc3\xbc\xc3\x9f\x65 \xe2\x80\xa8 \xf0\x9f\x94\xa5",
      "\xef\xbb\xbfmark",
      "null",
      "{{0}} %s %n",
      "'; drop table KSObjectHistory; --",
  };
  return texts;
}

/// A text put together from odd ones.
inline std::string SomeOddText(std::mt19937& random) {
  std::string text;
  for (unsigned pieces = random() % 4; pieces > 0; --pieces) {
    text += OddTexts()[random() % OddTexts().size()];
    if (random() % 3 == 0) text += static_cast<char>(random() % 256);
  }
  return text;
}

/// A megabyte of everything.
inline std::string MegabyteOfOddText() {
  std::mt19937 random(1048576);
  std::string text = "m";
  while (text.size() < 1U << 20U) text += SomeOddText(random);
  return text + "e";
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_ODD_TEXTS_H
