#include "base/text/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace keelstone {
namespace {

using ::testing::ElementsAre;

TEST(StringsTest, ContainsIgnoreCaseFoldsAsciiOnly) {
  EXPECT_TRUE(ContainsIgnoreCase("GigabitEthernet0/1", "ethERNET0"));
  EXPECT_TRUE(ContainsIgnoreCase("x", ""));
  EXPECT_TRUE(ContainsIgnoreCase("", ""));
  EXPECT_FALSE(ContainsIgnoreCase("ab", "abc"));
  EXPECT_FALSE(ContainsIgnoreCase("[", "{"));  // one bit apart, as letters and their cases
  EXPECT_FALSE(ContainsIgnoreCase("\xC3\x84", "\xC3\xA4"));
  EXPECT_TRUE(ContainsIgnoreCase(std::string_view("a\0B", 3), std::string_view("\0b", 2)));
}

TEST(StringsTest, FormatPositionalReplacesWhatHasAnArgument) {
  EXPECT_EQ(FormatPositional("{1} of {0}, {1}", {"b", "a"}), "a of b, a");
  EXPECT_EQ(FormatPositional("{2}{}{x}{-1}{0", {"a"}), "{2}{}{x}{-1}{0");
  EXPECT_EQ(FormatPositional("{{0}}", {"a"}), "{a}");
  EXPECT_EQ(FormatPositional("{99999999999999999999999}", {"a"}), "{99999999999999999999999}");
  // What an argument brings is not looked at again.
  EXPECT_EQ(FormatPositional("{0}{1}", {"{1}", "x"}), "{1}x");
}

}  // namespace
}  // namespace keelstone
