// The sizes of the rings and buffers of running streams.

#include <gtest/gtest.h>

#include <string>

#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

using sim::PinId;

struct Format {
  std::uint32_t rate_hz;
  std::uint16_t bits;
  std::uint16_t channels;
  std::uint32_t virtual_period;  ///< frames; 0: 10 ms
  std::uint32_t head_start;      ///< frames of 3 ms, truncated
};

class Sizes : public testing::TestWithParam<Format> {
 protected:
  WAVEFORMATEXTENSIBLE format() const { return pcm_format(GetParam().rate_hz, GetParam().bits, GetParam().channels); }
  std::uint32_t period() const {
    return GetParam().virtual_period != 0 ? GetParam().virtual_period : GetParam().rate_hz / 100;
  }
  sim::Config config(double drift_ppm = 0) const {
    return {.rate_hz = GetParam().rate_hz,
            .pins = {.virtual_period = GetParam().virtual_period, .drift_ppm = drift_ppm}};
  }
};

TEST_P(Sizes, AnIOBufferHoldsOnePeriodAndFourAreOutstanding) {
  RelayBench bench(config());
  bench.start();
  bench.record(format(), {});
  bench.play(format(), {});
  bench.machine.run_for(200);
  EXPECT_EQ(bench.machine.driver().pending_requests(), 8u);
  for (const PinId pin : {PinId::mic, PinId::speaker}) {
    const sim::PinStats stats = bench.machine.driver().stats(pin);
    ASSERT_GT(stats.transfers, 5u);
    EXPECT_EQ(stats.frames, stats.transfers * period() + stats.starved_frames);
  }
  EXPECT_TRUE(bench.log.has("[cap] virtual endpoint current period in frames:" + std::to_string(period()) + "\n"));
  EXPECT_TRUE(bench.log.has("[ren] virtual endpoint current period in frames:" + std::to_string(period()) + "\n"));
}

// Blocks of 10 ms are cut from the head start and what follows it, so the signal begins that far within one.
TEST_P(Sizes, ThePreBufferHasThreeMillisecondsOfHeadStart) {
  RelayBench bench(config());
  bench.start();
  bench.record(format(), numbered_pcm(GetParam().rate_hz, GetParam().bits, GetParam().channels));
  bench.machine.run_for(300);
  const std::size_t zeros = leading_zero_frames(bench.machine.driver().recording(), format().nBlockAlign);
  ASSERT_LT(zeros, bench.machine.driver().recording().size() / format().nBlockAlign);
  EXPECT_EQ(zeros % period(), GetParam().head_start % period());
}

class SizesWithEqualPeriods : public Sizes {};

// A virtual speaker that runs half as fast again fills the ring to the brim before the stream gives up. With periods of
// 10 ms on both sides the last read finds it full.
TEST_P(SizesWithEqualPeriods, TheStreamRingHoldsTenPeriods) {
  RelayBench bench(config(500'000));
  bench.start();
  bench.play(format(), numbered_pcm(GetParam().rate_hz, GetParam().bits, GetParam().channels));
  while (bench.relay->RenderStatistics().overruns == 0) bench.machine.run_for(10);
  EXPECT_EQ(bench.relay->RenderStatistics().fill_max, (10 - 1) * period());
}

constexpr Format kEqualPeriods[]{{48000, 16, 2, 0, 144}, {44100, 16, 2, 0, 132}, {48000, 24, 4, 0, 144}};
constexpr Format kOtherPeriods[]{{48000, 24, 2, 256, 144}, {48000, 16, 1, 1024, 144}};

INSTANTIATE_TEST_SUITE_P(EqualPeriods, SizesWithEqualPeriods, testing::ValuesIn(kEqualPeriods));
INSTANTIATE_TEST_SUITE_P(EqualPeriods, Sizes, testing::ValuesIn(kEqualPeriods));
INSTANTIATE_TEST_SUITE_P(OtherPeriods, Sizes, testing::ValuesIn(kOtherPeriods));

}  // namespace
}  // namespace sonivo::test
