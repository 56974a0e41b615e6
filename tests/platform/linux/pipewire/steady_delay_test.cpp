#include "platform/linux/pipewire/steady_delay.h"

#include <gtest/gtest.h>

namespace sonivo::pipewire {
namespace {

constexpr std::uint32_t kRate = 1000;
constexpr std::uint32_t kTurn = 64;

/// Of a stream that has settled.
struct SteadyDelayTest : testing::Test {
  SteadyDelayTest() {
    way.turn(kTurn);
    way.begin(kRate);
    way.pass(2 * kRate);
  }
  /// The direction of each slip from now on, until none is wanted any more or there were `limit`.
  int slips(std::int32_t wanted, int limit) {
    int sum = 0;
    for (int i = 0; i < limit; ++i) {
      const std::int32_t direction = way.slip(wanted);
      sum += direction;
      way.slipped(direction);
    }
    return sum;
  }

  SteadyDelay way;
};

TEST_F(SteadyDelayTest, SilenceThatWasPutInIsMadeUpForByTakingAsManyFramesMoreIn) {
  way.add(256);
  EXPECT_EQ(slips(0, 1000), 256);
}

TEST_F(SteadyDelayTest, FramesThatWereLostAreMadeUpForByTakingAsManyFewerIn) {
  way.add(-240);
  EXPECT_EQ(slips(0, 1000), -240);
}

TEST_F(SteadyDelayTest, LossesAndSilenceOfTheSameLengthLeaveTheWayAsItIs) {
  way.add(-144000);
  way.add(144000);
  EXPECT_EQ(slips(0, 10), 0);
}

TEST_F(SteadyDelayTest, WhatTheClientWantsComesFirstAndCounts) {
  way.add(30);
  EXPECT_EQ(slips(1, 20), 20);
  EXPECT_EQ(slips(0, 1000), 10);
}

TEST_F(SteadyDelayTest, WhereTheClientWantsMoreThanWasLostTheWayMovesForGood) {
  way.add(30);
  way.pass(3 * kRate);
  EXPECT_EQ(slips(1, 50), 50);
  EXPECT_EQ(slips(0, 10), 0);
}

TEST_F(SteadyDelayTest, WhereTheClientWantsTheOppositeTheWayStaysAsItIs) {
  way.add(30);
  way.pass(3 * kRate);
  EXPECT_EQ(slips(-1, 1), -1);
  EXPECT_EQ(slips(0, 10), 0);
}

TEST_F(SteadyDelayTest, WhatTheClientWantsInTheThreeSecondsAfterALossIsMadeUpForToo) {
  way.add(30);
  way.pass(3 * kRate - 1);
  EXPECT_EQ(slips(-1, 20), -20);
  EXPECT_EQ(slips(0, 1000), 50);
  way.add(30);
  EXPECT_EQ(slips(1, 50), 50);
  EXPECT_EQ(slips(0, 1000), -20);
}

TEST_F(SteadyDelayTest, WhatIsLostInTheFirstTwoSecondsOfAStreamIsNotMadeUpFor) {
  way.begin(kRate);
  way.add(50);
  EXPECT_EQ(slips(0, 10), 0);
  way.pass(kRate);
  way.add(50);
  way.pass(kRate);
  EXPECT_EQ(slips(0, 10), 0);
  way.add(2);
  way.pass(60);
  EXPECT_EQ(slips(0, 10), 2);
}

TEST_F(SteadyDelayTest, NorWhatIsLostInTheFirstTwoSecondsWithTurnsOfAnotherLength) {
  way.turn(kTurn);
  way.turn(kTurn + kTurn / 8);
  way.add(7);
  way.pass(kRate);
  EXPECT_EQ(slips(0, 10), 7);
  way.turn(2 * kTurn);
  way.add(50);
  way.pass(kRate);
  way.add(50);
  way.pass(kRate);
  EXPECT_EQ(slips(0, 10), 0);
}

TEST_F(SteadyDelayTest, WithoutAStreamNothingIsMadeUpFor) {
  way.end();
  way.add(50);
  EXPECT_EQ(slips(0, 10), 0);
  EXPECT_EQ(slips(-1, 10), -10);
}

}  // namespace
}  // namespace sonivo::pipewire
