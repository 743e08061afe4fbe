#include "platform/clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace keelstone {
namespace {

TEST(ClockTest, SourceTakesTheClocksPlaceUntilItIsGivenBack) {
  Clock::SetSource([] { return std::int64_t{1700000000999}; });
  EXPECT_EQ(Clock::LocalUtcMsecTime(), 1700000000999);
  EXPECT_EQ(Clock::NowSeconds(), 1700000000);
  Clock::SetSource(nullptr);
  EXPECT_NEAR(static_cast<double>(Clock::NowSeconds()), static_cast<double>(std::time(nullptr)),
              2.0);
}

}  // namespace
}  // namespace keelstone
