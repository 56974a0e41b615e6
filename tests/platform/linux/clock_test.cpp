#include "platform/linux/clock.h"

#include <gtest/gtest.h>

namespace sonivo::linux {
namespace {

TEST(MonotonicClock, CountsMillisecondsThatASleepTakes) {
  MonotonicClock clock;
  const std::uint64_t start = clock.tick_ms();
  clock.sleep_ms(20);
  const std::uint64_t slept = clock.tick_ms() - start;
  EXPECT_GE(slept, 20u);
  EXPECT_LT(slept, 2000u);
}

TEST(MonotonicClock, NeverGoesBack) {
  MonotonicClock clock;
  std::uint64_t latest = 0;
  for (int i = 0; i < 10'000; ++i) {
    const std::uint64_t now = clock.tick_ms();
    ASSERT_GE(now, latest);
    latest = now;
  }
}

}  // namespace
}  // namespace sonivo::linux
