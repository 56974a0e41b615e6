#include <ostream>

#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

/// Counts frames and gaps of a numbered signal without keeping it.
class GapCounter {
 public:
  sim::Source source() {
    return [this](std::span<std::byte> frames) {
      for (std::byte& b : frames) b = next(sent_);
    };
  }
  sim::Sink sink() {
    return [this](std::span<const std::byte> frames) {
      for (const std::byte b : frames) {
        if (!started_ && b == std::byte{0}) continue;
        started_ = true;
        if (b != next(received_)) ++mismatches_;
      }
    };
  }
  std::uint64_t mismatches() const { return mismatches_; }
  std::uint64_t received() const { return received_; }

 private:
  // A byte that is never 0 and repeats after 251 bytes only.
  static std::byte next(std::uint64_t& position) { return static_cast<std::byte>(1 + position++ % 251); }

  std::uint64_t sent_ = 0;
  std::uint64_t received_ = 0;
  std::uint64_t mismatches_ = 0;
  bool started_ = false;
};

struct Case {
  double drift_ppm;
  std::uint32_t hardware_period;
  WAVEFORMATEXTENSIBLE format;
};
void PrintTo(const Case& c, std::ostream* out) {
  *out << c.drift_ppm << " ppm, period " << c.hardware_period << ", " << c.format.nSamplesPerSec << " Hz";
}

class AnHourOfDrift : public ::testing::TestWithParam<Case> {
 protected:
  static sim::Config config() {
    sim::Config config;
    config.rate_hz = GetParam().format.nSamplesPerSec;
    config.pins.drift_ppm = GetParam().drift_ppm;
    config.hardware_period = GetParam().hardware_period;
    return config;
  }
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint32_t kSeconds = 120;
#else
constexpr std::uint32_t kSeconds = 3600;
#endif

/// Runs for an hour, looking once a second at what the feedback steers by. Its bounds are 10 and 20 ms; as the ring
/// moves in blocks of 10 ms, it may be seen one block beyond a bound before the feedback answers, and no further.
void expect_held_between_bounds(RelayBench& bench, DataFlow flow, std::uint32_t rate_hz) {
  const std::uint32_t block = rate_hz / 100;
  bench.start();
  const CStreamInterface& stream = bench.relay->Stream(flow);
  bench.machine.run_for(2000);
  for (std::uint32_t second = 2; second < kSeconds; ++second) {
    bench.machine.run_for(1000);
    ASSERT_LE(stream.Statistics().ring_minimum, 3 * block) << "after " << second << " s";
  }
  const StreamStatistics statistics = stream.Statistics();
  EXPECT_EQ(statistics.streams, 1u);
  EXPECT_EQ(statistics.underruns, 0u);
  EXPECT_EQ(statistics.overruns, 0u);
  EXPECT_GT(statistics.fill_count, (kSeconds - 1) * 99u);
  EXPECT_LE(statistics.fill_max, 4 * block);
}

TEST_P(AnHourOfDrift, LeavesTheMicrophoneWithoutAGap) {
  RelayBench bench(config());
  GapCounter counter;
  bench.machine.endpoint(sim::kMicArray).set_source(counter.source());
  bench.machine.driver().open_recorder(GetParam().format, counter.sink());
  expect_held_between_bounds(bench, DataFlow::capture, GetParam().format.nSamplesPerSec);
  EXPECT_EQ(counter.mismatches(), 0u);
  EXPECT_GT(counter.received(), std::uint64_t{GetParam().format.nAvgBytesPerSec} * (kSeconds - 2));
  EXPECT_EQ(bench.machine.driver().stats(sim::PinId::mic).starved_frames, 0u);
}

TEST_P(AnHourOfDrift, LeavesTheSpeakerWithoutAnUnderrun) {
  RelayBench bench(config());
  GapCounter counter;
  bench.machine.endpoint(sim::kSpeakers).set_sink([](std::span<const std::byte>) {});
  bench.machine.driver().open_player(GetParam().format, counter.source());
  expect_held_between_bounds(bench, DataFlow::render, GetParam().format.nSamplesPerSec);
  EXPECT_EQ(bench.machine.endpoint(sim::kSpeakers).render_stats().glitch_frames, 0u);
  EXPECT_EQ(bench.machine.driver().stats(sim::PinId::speaker).starved_frames, 0u);
}

INSTANTIATE_TEST_SUITE_P(Drifts, AnHourOfDrift,
                         ::testing::Values(Case{500.0, 480, pcm_format(48000, 16, 1)},
                                           Case{-500.0, 480, pcm_format(48000, 16, 1)},
                                           Case{137.0, 1024, pcm_format(48000, 16, 1)},
                                           Case{-500.0, 441, pcm_format(44100, 24, 1)}));

}  // namespace
}  // namespace sonivo::test
