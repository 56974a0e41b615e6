// The way of the microphone's frames to the application when no chain is called for.

#include <tuple>

#include "capture_bench.h"

namespace sonivo::test {
namespace {

using ::testing::Combine;
using ::testing::Values;

/// Records for a while; afterwards the application must have heard the silence of the start and then the microphone.
void expect_exact_passage(const Timing& timing, std::uint16_t bits, std::uint16_t channels) {
  const std::size_t align = bits / 8u * channels;
  RelayBench bench(untrimmed(timing));
  start_idle(bench);
  const auto mic = microphone(bits, channels);
  bench.record(pcm_format(timing.rate, bits, channels), mic);
  bench.machine.run_for(205);
  bench.stop();

  const auto heard = bench.machine.driver().recording();
  ASSERT_GE(heard.size() / align, timing.leading_zeros() + 3 * timing.block());
  EXPECT_EQ(leading_zero_frames(heard, align), timing.leading_zeros());
  const std::size_t passed = heard.size() / align - timing.leading_zeros();
  EXPECT_TRUE(same_pcm(cut_from(heard, timing.leading_zeros(), align), cut(mic, 0, passed, align), align));
  EXPECT_EQ(bench.relay->CaptureStatistics().underruns, 0u);
  EXPECT_EQ(bench.relay->CaptureStatistics().overruns, 0u);
}

using Shape = std::tuple<std::uint32_t, std::uint16_t, std::uint32_t>;  // rate, bits, hardware period

class Passage : public ::testing::TestWithParam<Shape> {};

TEST_P(Passage, WithoutAChainIsBitExactAfterTheSilenceOfTheStart) {
  const auto [rate, bits, period] = GetParam();
  for (std::uint16_t channels = 1; channels <= 4; ++channels) {
    SCOPED_TRACE(channels);
    const Timing timing{
        .rate = rate, .hardware_period = period, .virtual_period = rate / 100, .block_align = bits / 8u * channels};
    expect_exact_passage(timing, bits, channels);
  }
}

std::string name_of(const ::testing::TestParamInfo<Shape>& shape) {
  const auto [rate, bits, period] = shape.param;
  return std::to_string(rate) + "Hz" + std::to_string(bits) + "BitsPeriod" + std::to_string(period);
}

INSTANTIATE_TEST_SUITE_P(Formats, Passage,
                         Combine(Values(48000u, 44100u), Values(std::uint16_t{16}, std::uint16_t{24}),
                                 Values(48u, 64u, 256u, 441u, 480u, 512u, 1024u, 2048u)),
                         name_of);

class VirtualPeriod : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(VirtualPeriod, SetsTheSizeOfTheTransfersAndLeavesThePassageExact) {
  expect_exact_passage({.virtual_period = GetParam()}, 16, 2);
}

INSTANTIATE_TEST_SUITE_P(Frames, VirtualPeriod, Values(160u, 240u, 256u, 480u, 960u));

TEST(CapturePassage, SevenSilentPeriodsAndThreeMillisecondsComeFirstWhenAllPeriodsAreTenMilliseconds) {
  EXPECT_EQ(Timing{}.leading_zeros(), 7u * 480 + 144);
  RelayBench bench(untrimmed());
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(105);
  EXPECT_EQ(leading_zero_frames(bench.machine.driver().recording(), 4), 7u * 480 + 144);
}

TEST(CapturePassage, IsSilentForTheFirst30MillisecondsSinceTheRingIsntReady) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(39);  // the buffers that completed by now went out before the ring was filled
  EXPECT_TRUE(same_pcm(bench.machine.driver().recording(), zeros(3 * 480)));
}

TEST(CapturePassage, CountsTheThirtyMillisecondsOfTheRingInBytesOfTheRate) {
  // Three blocks of 110 frames are 1320 bytes and 30 ms at 11025 Hz are 1323, so it takes four.
  const Timing timing{.rate = 11025, .hardware_period = 110, .virtual_period = 110, .block_align = 4};
  ASSERT_EQ(timing.silent_frames(), 8u * 110);
  RelayBench bench(untrimmed(timing));
  start_idle(bench);
  bench.record(pcm_format(11025, 16, 2), microphone());
  bench.machine.run_for(150);
  EXPECT_EQ(leading_zero_frames(bench.machine.driver().recording(), 4), 8u * 110 + 33);
}

TEST(CapturePassage, NeverGetsReadyWhenTenVirtualPeriodsAreLessThan30Milliseconds) {
  const Timing timing{.virtual_period = 143};
  RelayBench bench(untrimmed(timing));
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(205);
  const auto heard = bench.machine.driver().recording();
  EXPECT_TRUE(same_pcm(heard, zeros(heard.size() / 4)));
  EXPECT_EQ(bench.relay->Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
}

// The ring is full at its first 30 ms, so that the next block no longer fits whole.
TEST(CapturePassage, GetsReadyWhenTenVirtualPeriodsAreExactly30Milliseconds) {
  const Timing timing{.virtual_period = 144};
  RelayBench bench(untrimmed(timing));
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(60);
  const auto heard = bench.machine.driver().recording();
  ASSERT_EQ(leading_zero_frames(heard, 4), timing.leading_zeros());
  EXPECT_TRUE(same_pcm(cut(heard, timing.leading_zeros(), 144), cut(microphone(), 0, 144)));
}

TEST(CapturePassage, TurnsAPacketThatIsFlaggedSilentIntoAZeroedBlock) {
  RelayBench bench(untrimmed());
  bench.machine.endpoint(sim::kMicArray).make_packet_silent(5);
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(205);
  const auto mic = microphone();
  const auto expected = join({zeros(7 * 480 + 144), cut(mic, 0, 5 * 480), zeros(480), cut(mic, 6 * 480, 10 * 480)});
  const auto heard = bench.machine.driver().recording();
  EXPECT_TRUE(same_pcm(heard, cut(expected, 0, heard.size() / 4)));
  EXPECT_EQ(heard.size(), 20u * 480 * 4);
}

TEST(CapturePassage, ReleasesAnEmptyPacketAndGoesOnUnharmed) {
  RelayBench bench(untrimmed());
  bench.machine.endpoint(sim::kMicArray).make_packet_empty(4);
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(205);
  const auto heard = bench.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144), cut(microphone(), 0, heard.size() / 4 - 7 * 480 - 144)));
  EXPECT_EQ(bench.log.count("[cap] IAudioCaptureClient::GetBuffer 0 frame\n"), 1u);
  const sim::Script& script = bench.machine.script();
  EXPECT_EQ(script.count(Step::capture_get_buffer), 21u);  // twenty packets and the empty one
  EXPECT_EQ(script.count(Step::capture_release_buffer), 21u);
}

TEST(CapturePassage, LosesWithoutNoticeWhatDoesntFitIntoTheStreamRing) {
  // The application takes a buffer every 20 ms and the microphone brings a block every 10 ms: the ring of ten periods
  // fills up, and from then on every second block is lost.
  sim::Config config = untrimmed();
  config.pins.drift_ppm = -500'000;
  RelayBench bench(config);
  start_idle(bench);
  const auto mic = numbered_pcm(48000, 16, 2);
  bench.record(pcm_format(48000, 16, 2), mic);
  bench.machine.run_for(605);

  const auto processed = join({zeros(144), mic});
  std::vector<std::byte> expected = zeros(4 * 480);
  std::vector<std::uint32_t> ring;
  bool ready = false;
  std::uint32_t lost = 0;
  for (std::uint32_t ms = 10; ms <= 600; ms += 10) {
    if (ms % 20 == 0) {  // a buffer is served before the packet of the same instant
      expected = join({expected, ready ? cut(processed, ring.front() * 480, 480) : zeros(480)});
      if (ready) ring.erase(ring.begin());
    }
    if (ring.size() < 10) {
      ring.push_back(ms / 10 - 1);
    } else {
      ++lost;
    }
    ready = ready || ring.size() == 3;
  }
  const auto heard = bench.machine.driver().recording();
  EXPECT_EQ(heard.size(), 30u * 480 * 4);
  EXPECT_TRUE(same_pcm(heard, cut(expected, 0, 30 * 480)));
  EXPECT_EQ(bench.relay->CaptureStatistics().overruns, lost);
  EXPECT_GE(lost, 20u);
  EXPECT_EQ(traces_with(bench, "ring buffer"), 0u);
  EXPECT_EQ(recording_states(bench), (std::vector<std::uint64_t>{1}));
}

TEST(CapturePassage, StartsWithSilenceAnewWhenTheStreamRestarts) {
  RelayBench bench(untrimmed());
  start_idle(bench);
  record_stereo(bench);
  bench.machine.run_for(105);
  bench.relay->Stream(DataFlow::capture).RequestRestart();
  bench.machine.run_for(150);
  // Ten buffers were heard and ten packets taken before; what the old stream still held is gone.
  const auto mic = microphone();
  const auto expected =
      join({zeros(7 * 480 + 144), cut(mic, 0, 3 * 480 - 144), zeros(7 * 480 + 144), cut(mic, 10 * 480, 10 * 480)});
  const auto heard = bench.machine.driver().recording();
  EXPECT_EQ(heard.size(), 25u * 480 * 4);
  EXPECT_TRUE(same_pcm(heard, cut(expected, 0, 25 * 480)));
}

}  // namespace
}  // namespace sonivo::test
