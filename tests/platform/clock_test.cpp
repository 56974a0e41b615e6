#include <gtest/gtest.h>

#include <cmath>

#include "platform/sim/packet_clock.h"
#include "platform/sim/stream_clock.h"

namespace sonivo::sim {
namespace {

constexpr Time kStart = 1000 * kSecond;

Time rounded(long double ns) { return std::llround(ns); }

TEST(StreamClock, ReachesFrameNAfterNOverTheDriftedRate) {
  const StreamClock clock(kStart, 44100, -150, 1000, 0);
  const long double rate = 44100.0L * (1 - 150e-6L);
  for (const long double n : {1.0L, 441.0L, 44100.0L, 44100.0L * 3600}) {
    EXPECT_NEAR(static_cast<double>(clock.time_of(static_cast<double>(n)) - kStart),
                static_cast<double>(n / rate * 1e9L), 1.0);
  }
}

TEST(StreamClock, ATrimActsFromItsInstantOnAndOnTopOfTheDrift) {
  StreamClock clock(kStart, 48000, 200, 1000, 0);
  const Time change = kStart + 123456789;
  clock.set_trim(change, 1);
  const long double before = 48000.0L * (1 + 200e-6L);
  const long double after = before * (1 + 1000e-6L);
  const long double position = 0.123456789L * before;
  const long double frame = 480'000;
  EXPECT_NEAR(static_cast<double>(clock.time_of(480'000)),
              static_cast<double>(change + rounded((frame - position) / after * 1e9L)), 1.0);
  EXPECT_NEAR(clock.position(change), static_cast<double>(position), 1e-6);
}

TEST(StreamClock, TrimsBackAndForthReturnToTheOldRate) {
  StreamClock clock(kStart, 48000, 0, 1000, 0);
  clock.set_trim(kStart + kSecond, -1);
  clock.set_trim(kStart + 2 * kSecond, 0);
  EXPECT_NEAR(clock.position(kStart + 3 * kSecond), 48000 + 48000 * 0.999 + 48000, 1e-6);
}

struct EngineCase {
  std::uint32_t rate;
  std::uint32_t period;
  std::uint32_t pieces;  ///< ceil(period / 10 ms), by hand
};

class PacketClockTest : public testing::TestWithParam<EngineCase> {};

TEST_P(PacketClockTest, CutsAPeriodIntoNearlyEqualPacketsOfAtMostTenMilliseconds) {
  const auto [rate, period, pieces] = GetParam();
  const PacketClock clock(rate, period);
  for (std::uint64_t burst = 0; burst < 5; ++burst) {
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < pieces; ++i) {
      const std::uint32_t frames = clock.frames(burst * pieces + i);
      EXPECT_LE(frames, rate / 100);
      EXPECT_LE(frames, clock.max_frames());
      EXPECT_GE(frames + 1, clock.max_frames());
      sum += frames;
    }
    EXPECT_EQ(sum, period);
  }
}

TEST_P(PacketClockTest, SpreadsARecordedPeriodEvenlyOverTheOneThatFollowsIt) {
  const auto [rate, period, pieces] = GetParam();
  const PacketClock clock(rate, period);
  for (const std::uint64_t burst : {0u, 1u, 2u, 100'000u}) {
    for (std::uint32_t i = 0; i < pieces; ++i) {
      const long double frames =
          static_cast<long double>(burst + 1) * period + i * static_cast<long double>(period) / pieces;
      EXPECT_EQ(clock.arrival(burst * pieces + i), rounded(frames / rate * 1e9L));
    }
  }
}

TEST_P(PacketClockTest, PlaysAtTheSamePaceWithoutAPeriodOfDelay) {
  const auto [rate, period, pieces] = GetParam();
  const PacketClock clock(rate, period);
  EXPECT_EQ(clock.played(0), rounded(static_cast<long double>(period) / pieces / rate * 1e9L));
  EXPECT_EQ(clock.played(pieces * std::uint64_t{rate} - 1), static_cast<Time>(period) * kSecond);
}

INSTANTIATE_TEST_SUITE_P(Engines, PacketClockTest,
                         testing::Values(EngineCase{48000, 48, 1}, EngineCase{48000, 441, 1}, EngineCase{48000, 480, 1},
                                         EngineCase{48000, 512, 2}, EngineCase{48000, 1024, 3},
                                         EngineCase{48000, 2048, 5}, EngineCase{44100, 48, 1},
                                         EngineCase{44100, 441, 1}, EngineCase{44100, 480, 2},
                                         EngineCase{44100, 512, 2}, EngineCase{44100, 1024, 3},
                                         EngineCase{44100, 2048, 5}));

}  // namespace
}  // namespace sonivo::sim
