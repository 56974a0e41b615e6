// Clocks that drift apart, and the feedback that holds the ring between its bounds all the same.

#include <algorithm>
#include <cmath>
#include <ostream>

#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

/// A signal of numbered bytes, and the ear at its far end that hears whether any of them is missing.
class NumberedSignal {
 public:
  /// The first `unheard` bytes at the far end aren't listened to.
  explicit NumberedSignal(std::uint64_t unheard = 0) : unheard_(unheard) {}

  sim::Source source() {
    return [this](std::span<std::byte> bytes) {
      for (std::byte& b : bytes) b = number(sent_++);
    };
  }
  sim::Sink sink() {
    return [this](std::span<const std::byte> bytes) {
      for (const std::byte b : bytes) hear(b);
    };
  }
  std::uint64_t mismatches() const { return mismatches_; }
  std::uint64_t heard() const { return heard_; }

 private:
  // Never 0, and repeated after 251 bytes only, which divides no block.
  static constexpr std::uint64_t kNumbers = 251;
  static std::byte number(std::uint64_t position) { return static_cast<std::byte>(1 + position % kNumbers); }

  void hear(std::byte b) {
    if (unheard_ != 0) {
      --unheard_;
      return;
    }
    if (heard_ == 0) {
      if (b == std::byte{0}) return;
      position_ = std::to_integer<std::uint64_t>(b) - 1;
    }
    ++heard_;
    if (b != number(position_++)) ++mismatches_;
  }

  std::uint64_t unheard_;
  std::uint64_t sent_ = 0;
  std::uint64_t heard_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t mismatches_ = 0;
};

struct Case {
  double drift_ppm;
  std::uint32_t hardware_period;
  WAVEFORMATEXTENSIBLE format;
};
void PrintTo(const Case& c, std::ostream* out) {
  *out << c.drift_ppm << " ppm, period " << c.hardware_period << ", " << c.format.nSamplesPerSec << " Hz";
}

#if defined(SONIVO_ASAN) || defined(SONIVO_TSAN)
constexpr std::uint32_t kSeconds = 120;
#else
constexpr std::uint32_t kSeconds = 3600;
#endif

constexpr double kTrimPpm = 1000;

/// What the feedback steers by, looked at once a second. No published minimum lasts less than that, so none is missed.
struct Published {
  std::uint32_t farthest = 0;    ///< outside the bounds, in frames
  std::uint32_t excursions = 0;  ///< out of the bounds
  std::uint32_t longest = 0;     ///< of these, in seconds

  void note(std::uint32_t minimum, std::uint32_t low, std::uint32_t high) {
    const std::uint32_t outside = minimum < low ? low - minimum : minimum > high ? minimum - high : 0;
    farthest = std::max(farthest, outside);
    length_ = outside != 0 ? length_ + 1 : 0;
    if (length_ == 1) ++excursions;
    longest = std::max(longest, length_);
  }

 private:
  std::uint32_t length_ = 0;  ///< of the excursion under way
};

class Drift : public ::testing::TestWithParam<Case> {
 protected:
  static sim::Config config(double trim_ppm) {
    sim::Config config;
    config.rate_hz = GetParam().format.nSamplesPerSec;
    config.hardware_period = GetParam().hardware_period;
    config.pins.drift_ppm = GetParam().drift_ppm;
    config.pins.trim_ppm = trim_ppm;
    return config;
  }
  static std::uint32_t block() { return GetParam().format.nSamplesPerSec / 100; }

  /// Seconds of an excursion at most, while the clock obeys. It drifts by d ppm and is trimmed by t the other way, so
  /// that what a second of drift has done is undone within r = d / (t - d) seconds.
  ///
  /// A minimum below the low bound shows with the first low reading of a second: up to one second of drift lies beyond
  /// the bound, which takes r seconds, and the next second that begins after that is the first without a low reading:
  /// r + 2 at most. One above the high bound shows after the first second without a reading inside: up to two seconds
  /// of drift, which take 2 r, and the second that this ends in has a reading inside: 2 r + 1, which is no more as
  /// r <= 1. Half a second is for the ends of the seconds, which wait for a read, and for packets that don't divide
  /// 10 ms: those of 1024 frames meet the blocks in the same way every 320 ms. Looked at once a second, each second
  /// begun counts.
  static std::uint32_t longest_excursion() {
    const double drift = std::fabs(GetParam().drift_ppm);
    const double r = drift / (kTrimPpm - drift);
    EXPECT_LE(r, 1);
    return static_cast<std::uint32_t>(std::ceil(r + 2 + 0.5));
  }

  /// Runs the direction, whose application is there, and looks at each second after the first publication.
  static Published run(RelayBench& bench, DataFlow flow, std::uint32_t seconds) {
    bench.start();
    bench.machine.run_for(2000);
    Published published;
    for (std::uint32_t second = 2; second < seconds; ++second) {
      bench.machine.run_for(1000);
      published.note(bench.relay->Stream(flow).Statistics().ring_minimum, block(), 2 * block());
    }
    return published;
  }
};

class AnHourOfDrift : public Drift {
 protected:
  AnHourOfDrift() : bench(config(kTrimPpm)) {}

  /// The bounds are 10 and 20 ms. The ring moves in blocks of 10 ms, so that it leaves a bound by up to a block before
  /// the feedback can see it; no further, and not for long.
  void expect_held_between_the_bounds(DataFlow flow) {
    const Published published = run(bench, flow, kSeconds);
    EXPECT_GT(published.excursions, 0u) << "nothing had to be held";
    EXPECT_LE(published.farthest, block());
    EXPECT_LE(published.longest, longest_excursion());
    const StreamStatistics statistics = bench.relay->Stream(flow).Statistics();
    EXPECT_EQ(statistics.streams, 1u);
    EXPECT_EQ(statistics.underruns, 0u);
    EXPECT_EQ(statistics.overruns, 0u);
    EXPECT_GT(statistics.fill_count, (kSeconds - 1) * 99u);
    EXPECT_LE(statistics.fill_max, 4 * block());
  }
  void expect_no_gap() const {
    EXPECT_EQ(signal.mismatches(), 0u);
    EXPECT_GT(signal.heard(), std::uint64_t{GetParam().format.nAvgBytesPerSec} * (kSeconds - 2));
  }

  RelayBench bench;
  // From the second second on: a speaker's gain rises within the first.
  NumberedSignal signal{GetParam().format.nAvgBytesPerSec};
};

TEST_P(AnHourOfDrift, LeavesTheMicrophoneWithoutAGap) {
  bench.machine.endpoint(sim::kMicArray).set_source(signal.source());
  bench.machine.driver().open_recorder(GetParam().format, signal.sink());
  expect_held_between_the_bounds(DataFlow::capture);
  expect_no_gap();
  EXPECT_EQ(bench.machine.driver().stats(sim::PinId::mic).starved_frames, 0u);
}

TEST_P(AnHourOfDrift, LeavesTheSpeakerWithoutAGap) {
  bench.machine.driver().open_player(GetParam().format, signal.source());
  bench.machine.endpoint(sim::kSpeakers).set_sink(signal.sink());
  expect_held_between_the_bounds(DataFlow::render);
  expect_no_gap();
  EXPECT_EQ(bench.machine.endpoint(sim::kSpeakers).render_stats().glitch_frames, 0u);
  EXPECT_EQ(bench.machine.driver().stats(sim::PinId::speaker).starved_frames, 0u);
}

class DriftWithoutTrim : public Drift {
 protected:
  DriftWithoutTrim() : bench(config(0)) {}

  /// From the high bound, where a stream starts, 30 ms of drift empty the ring or take it more than a block beyond.
  void expect_not_held(DataFlow flow) {
    const double drifted_30_ms = 0.030 / (std::fabs(GetParam().drift_ppm) * 1e-6);
    const Published published = run(bench, flow, static_cast<std::uint32_t>(drifted_30_ms) + 5);
    EXPECT_GT(published.longest, longest_excursion());
    EXPECT_TRUE(published.farthest > block() || bench.relay->Stream(flow).Statistics().underruns != 0);
    // Before the first publication, within the bounds, out of them: what the driver was asked for and didn't do.
    const auto asked =
        bench.machine.driver().feedback(flow == DataFlow::capture ? sim::PinId::mic : sim::PinId::speaker);
    ASSERT_GE(asked.size(), 3u);
    EXPECT_EQ(asked[1].value, 0);
    EXPECT_EQ(asked[2].value, GetParam().drift_ppm > 0 ? -1 : 1);
  }

  RelayBench bench;
};

TEST_P(DriftWithoutTrim, TakesTheMicrophonesRingOutOfItsBounds) {
  bench.machine.driver().open_recorder(GetParam().format, [](std::span<const std::byte>) {});
  expect_not_held(DataFlow::capture);
}

TEST_P(DriftWithoutTrim, TakesTheSpeakersRingOutOfItsBounds) {
  bench.machine.endpoint(sim::kSpeakers).set_sink([](std::span<const std::byte>) {});
  bench.machine.driver().open_player(GetParam().format, sim::memory_source({}));
  expect_not_held(DataFlow::render);
}

const auto kCases =
    ::testing::Values(Case{500.0, 480, pcm_format(48000, 16, 1)}, Case{-500.0, 480, pcm_format(48000, 16, 1)},
                      Case{137.0, 1024, pcm_format(48000, 16, 1)}, Case{-500.0, 441, pcm_format(44100, 24, 1)});
INSTANTIATE_TEST_SUITE_P(Drifts, AnHourOfDrift, kCases);
INSTANTIATE_TEST_SUITE_P(Drifts, DriftWithoutTrim, kCases);

}  // namespace
}  // namespace sonivo::test
