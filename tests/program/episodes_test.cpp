#include "program/evaluate/episodes.h"

#include <gtest/gtest.h>

#include <array>

namespace keelstone::host {
namespace {

constexpr ObjectKey kKey = {"d", "r1", "s", "p", "eth0", "v"};

TEST(Episodes, EveryPartOfTheKeyCountsAndWhatIsOpenStandsInOrder) {
  Episodes episodes;
  std::array<ObjectKey, 7> keys;
  keys.fill(kKey);
  keys[1].domain = "x";
  keys[2].device = "x";
  keys[3].source = "x";
  keys[4].param = "x";
  keys[5].interface = "x";
  keys[6].variable = "x";
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(episodes.Note(keys[i], 100 - static_cast<std::int64_t>(i), true),
              EpisodeStep::kOpened);
  }
  // What is cut off one part and put to the next makes another key.
  EXPECT_EQ(episodes.Note({"dr", "1", "s", "p", "eth0", "v"}, 1, false), EpisodeStep::kNone);
  const auto open = episodes.Open();
  ASSERT_EQ(open.size(), keys.size());
  EXPECT_EQ(open.front().first, keys[6]);
  EXPECT_EQ(open.back().first, kKey);
}

}  // namespace
}  // namespace keelstone::host
