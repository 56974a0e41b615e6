#include "platform/linux/pipewire/turn_count.h"

#include <gtest/gtest.h>

namespace sonivo::pipewire {
namespace {

constexpr std::uint64_t kSomewhere = 123'456'789'012;

TEST(TurnCount, TurnsThatFollowEachOtherMissNothingWhateverTheirLength) {
  TurnCount turns(48000);
  std::uint64_t position = kSomewhere;
  for (const std::uint32_t frames : {256u, 256u, 2048u, 64u, 64u, 1024u}) {
    EXPECT_EQ(turns.turn(position, 48000, frames), 0);
    position += frames;
  }
}

TEST(TurnCount, ATurnThatWasMissedIsToldOnce) {
  TurnCount turns(48000);
  EXPECT_EQ(turns.turn(kSomewhere, 48000, 256), 0);
  EXPECT_EQ(turns.turn(kSomewhere + 512, 48000, 256), 256);
  EXPECT_EQ(turns.turn(kSomewhere + 768, 48000, 256), 0);
  EXPECT_EQ(turns.turn(kSomewhere + 768 + 256 * 563, 48000, 256), 562 * 256);
}

TEST(TurnCount, AnotherClockThatIsBehindCountsAsNegative) {
  TurnCount turns(48000);
  turns.turn(10256, 48000, 256);
  EXPECT_EQ(turns.turn(512, 48000, 256), -10000);
  EXPECT_EQ(turns.turn(768, 48000, 256), 0);
}

// A converter gives what it has got: a frame more or fewer in a turn, and a few less at first.
TEST(TurnCount, WhatAConverterHoldsBackIsNotMissedButATurnIs) {
  TurnCount turns(48000);
  std::uint64_t position = kSomewhere;
  std::int64_t moved = 0;
  const auto turn = [&](std::int64_t due) {
    const auto frames = static_cast<std::uint32_t>(due - moved);
    moved += frames;
    const std::int64_t missed = turns.turn(position, 44100, frames);
    position += 441;
    return missed;
  };
  for (int i = 1; i <= 1000; ++i) ASSERT_EQ(turn(480 * i - 40 + i % 2), 0) << i;
  position += 441;
  EXPECT_NEAR(static_cast<double>(turn(480 * 1001)), 480 + 40, 1);
}

TEST(TurnCount, FromARestartOnOrAnotherRateOnItCountsAnew) {
  TurnCount turns(48000);
  turns.turn(1000, 48000, 256);
  turns.restart();
  EXPECT_EQ(turns.turn(90000, 48000, 256), 0);
  EXPECT_EQ(turns.turn(500, 44100, 279), 0);
  EXPECT_EQ(turns.turn(756, 44100, 279), 0);
}

}  // namespace
}  // namespace sonivo::pipewire
