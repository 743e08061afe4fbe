#include "program/report/sparkline.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace keelstone::host {
namespace {

TEST(Sparkline, DrawsEveryValueByItsHeight) {
  EXPECT_EQ(Sparkline({}, true), "");
  EXPECT_EQ(Sparkline({5, 5}, true), "▁▁");
  EXPECT_EQ(Sparkline({0, 1, 2, 3, 4, 5, 6, 7, 8}, true), "▁▂▃▄▅▆▇██");
  EXPECT_EQ(Sparkline({-4, 0, 3.9}, false), "_+#");
  constexpr double kMost = std::numeric_limits<double>::max();
  EXPECT_EQ(Sparkline({-kMost, 0, kMost}, false), "_+#");
}

TEST(StateStrip, GivesEveryTextALetterUntilTheyAreUsedUp) {
  const StateStrip strip = MakeStateStrip({"up", "down", "up"});
  EXPECT_EQ(strip.strip, "ABA");
  ASSERT_EQ(strip.states.size(), 2U);
  EXPECT_EQ(strip.states[0].text, "up");
  EXPECT_EQ(strip.states[0].count, 2U);
  std::vector<std::string> many;
  for (int i = 0; i < 30; ++i) many.push_back(std::to_string(i));
  many.push_back("25");
  EXPECT_EQ(MakeStateStrip(many).strip, "ABCDEFGHIJKLMNOPQRSTUVWXYZ????Z");
  EXPECT_EQ(MakeStateStrip(many).states.size(), 26U);
}

}  // namespace
}  // namespace keelstone::host
