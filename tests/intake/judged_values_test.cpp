#include "keelstone/judged_values.h"

#include <gtest/gtest.h>

#include "keelstone/rule_records.h"

namespace keelstone {
namespace {

ParsedRun RunOf(const std::string& device, std::size_t values) {
  ParsedRun run;
  run.device = device;
  run.variables.resize(values);
  return run;
}

/// Whether a variable is known that was judged once, `later` values of another unit ago, in
/// `steps` runs of it.
bool IsKnownAfter(std::uint64_t later, std::size_t steps) {
  JudgedValues values(100);
  const JudgedValues::Place first = values.Of(RunOf("a", 1));
  first.unit->Note({{.key = 7, .value = {1700000000, 5}}}, first.position);
  for (std::size_t i = 0; i < steps; ++i) {
    const JudgedValues::Place other = values.Of(RunOf("b", later / steps));
    other.unit->Note({{.key = i, .value = {1700000000, 5}}}, other.position);
  }
  const JudgedValues::Place again = values.Of(RunOf("a", 1));
  return again.unit->Look({7}, again.position)[0].isKnown;
}

TEST(JudgedValues, ForgetByTheInputAloneHoweverItIsCut) {
  for (const std::size_t steps : {1U, 3U, 99U}) {
    EXPECT_TRUE(IsKnownAfter(99, steps)) << steps;
  }
  for (const std::size_t steps : {1U, 2U, 100U}) {
    EXPECT_FALSE(IsKnownAfter(100, steps)) << steps;
  }
}

TEST(JudgedValues, KeepTheNewestAndCountWhatComesBehindIt) {
  using Step = UnitMemory::Step;
  JudgedValues values;
  const JudgedValues::Place place = values.Of(RunOf("a", 1));
  const auto newest = [&] { return place.unit->Look({7}, place.position)[0]; };
  const auto note = [&](std::int64_t time, Step step) {
    place.unit->Note({{.key = 7, .value = {time, 1}, .step = step}}, place.position);
  };
  note(50, Step::kNewest);
  note(40, Step::kNewest);
  EXPECT_EQ(newest().newest.time, 50);
  note(10, Step::kBehind);
  note(20, Step::kBehind);
  EXPECT_EQ(newest().behindCount, 2U);
  note(20, Step::kBehind);  // not in order: counted anew
  EXPECT_EQ(newest().behindCount, 1U);
  EXPECT_EQ(newest().newest.time, 50);
  note(30, Step::kReset);
  EXPECT_EQ(newest().newest.time, 30);
  EXPECT_EQ(newest().behindCount, 0U);
  values.Clear();
  const JudgedValues::Place cleared = values.Of(RunOf("a", 1));
  EXPECT_FALSE(cleared.unit->Look({7}, cleared.position)[0].isKnown);
}

}  // namespace
}  // namespace keelstone
