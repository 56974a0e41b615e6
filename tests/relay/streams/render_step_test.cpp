// One wake-up of the render stream: a buffer of the virtual speaker, room at the physical one, a request to stop.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

constexpr std::size_t kFrameBytes = 4;

class RenderStep : public ::testing::Test {
 protected:
  /// Streaming for `ms`, with a signal without a zero.
  void stream_for(std::uint32_t ms) {
    bench.machine.driver().open_player(kCdStereo, sim::memory_source(numbered_pcm(96000, 16, 2)));
    bench.start();
    bench.machine.run_for(ms);
  }
  void expect_restarts(std::size_t count) {
    EXPECT_EQ(bench.log.count("[ren] stream stopped\n"), count);
    EXPECT_EQ(bench.physical().initialized().size(), count + 1);
    EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
    EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
  }
  // The feedback doesn't move the virtual clock, so that its buffers come with the packets of the physical one.
  StreamBench bench{DataFlow::render, {.pins = {.trim_ppm = 0}}};
};

TEST_F(RenderStep, SaysWhatWokeIt) {
  stream_for(105);
  EXPECT_EQ(bench.log.count("[ren] received data from virtual speaker\n"), 10u);
  EXPECT_EQ(bench.log.count("[ren] send data to physical speaker\n"), 10u);
  EXPECT_EQ(bench.stream->Statistics().virtual_transfers, 10u);
  EXPECT_EQ(bench.stream->Statistics().physical_packets, 10u);
}

TEST_F(RenderStep, OfTwoEventsAtOnceTheVirtualBufferComesFirst) {
  stream_for(15);
  std::vector<std::string> traces = bench.log.traces();
  std::erase_if(traces, [](const std::string& text) {
    return text != "[ren] received data from virtual speaker\n" && text != "[ren] send data to physical speaker\n";
  });
  EXPECT_THAT(traces,
              ElementsAre("[ren] received data from virtual speaker\n", "[ren] send data to physical speaker\n"));
}

// ---- Lead

/// Frames of silence that the physical speaker plays first when the virtual one is filled by `period` frames.
std::size_t silence_before_audio(std::uint32_t period, std::uint32_t rate_hz = 48000) {
  StreamBench bench(DataFlow::render, {.rate_hz = rate_hz, .pins = {.virtual_period = period, .trim_ppm = 0}});
  bench.machine.driver().open_player(pcm_format(rate_hz, 16, 2), sim::memory_source(numbered_pcm(96000, 16, 2)));
  bench.start();
  bench.machine.run_for(150);
  return leading_zero_frames(bench.physical().played(), kFrameBytes);
}

// A packet that is asked for at 10 n ms plays 10 ms later, as one other is still waiting.
TEST(RenderLead, IsCompleteWithThirtyMillisecondsExactly) {
  EXPECT_EQ(silence_before_audio(480), 4u * 480);
  EXPECT_EQ(silence_before_audio(1440), 4u * 480);
  EXPECT_EQ(silence_before_audio(441, 44100), 4u * 441);
}

TEST(RenderLead, OneFrameLessIsNotEnough) { EXPECT_EQ(silence_before_audio(1439), 7u * 480); }

// 30 ms at 22050 Hz are 2646 bytes: more than 661 frames, which would be 30 ms cut to whole frames, less than 662.
TEST(RenderLead, IsCountedInBytesOfTheRate) {
  EXPECT_EQ(silence_before_audio(661, 22050), 8u * 220) << "the second transfer comes after 59.95 ms";
  EXPECT_EQ(silence_before_audio(662, 22050), 5u * 220) << "the first one after 30.02 ms";
}

TEST_F(RenderStep, IsSilentUntilTheLeadIsComplete) {
  stream_for(25);
  EXPECT_EQ(bench.stream->Statistics().physical_packets, 2u);
  EXPECT_EQ(bench.stream->Statistics().fill_count, 0u) << "nothing was read from the ring";
  bench.machine.run_for(10);
  EXPECT_EQ(bench.stream->Statistics().fill_count, 1u);
  EXPECT_EQ(bench.stream->Statistics().fill_max, 960u);
}

TEST_F(RenderStep, EveryStreamStartsWithALeadAndFromSilenceAgain) {
  stream_for(400);
  const std::size_t played = bench.physical().played().size();
  bench.stream->RequestRestart();
  bench.machine.run_for(100);
  std::vector<std::byte> anew = bench.physical().played();
  anew.erase(anew.begin(), anew.begin() + static_cast<std::ptrdiff_t>(played));
  EXPECT_EQ(leading_zero_frames(anew, kFrameBytes), 4u * 480);
}

// ---- Failures on the virtual side

TEST_F(RenderStep, AFailedBufferEndsTheStreamAndIsNotResubmitted) {
  stream_for(35);
  bench.machine.script().fail(Step::device_result, 31);
  std::uint64_t submitted = 0;
  bench.machine.script().before(Step::client_stop, 1,
                                [&] { submitted = bench.machine.script().count(Step::device_transfer); });
  bench.machine.run_for(10);
  EXPECT_EQ(bench.log.count("[ren] virtual stream error. 31\n"), 1u);
  EXPECT_EQ(submitted, 4u + 3u);
  expect_restarts(1);
}

TEST_F(RenderStep, ABufferThatCannotBeResubmittedEndsTheStream) {
  stream_for(35);
  bench.machine.script().fail(Step::device_transfer, error::kAccessDenied);
  bench.machine.run_for(10);
  EXPECT_EQ(bench.log.count("[ren] ReleaseCurrentIOBuffer failed.\n"), 1u);
  EXPECT_FALSE(bench.log.has("[ren] virtual stream error. 5\n"));
  expect_restarts(1);
}

// ---- Failures on the physical side

class RenderRoomFailure : public RenderStep, public ::testing::WithParamInterface<Step> {};
INSTANTIATE_TEST_SUITE_P(At, RenderRoomFailure,
                         ::testing::Values(Step::client_buffer_size, Step::client_padding, Step::render_get_buffer),
                         [](const auto& test) { return std::string(to_string(test.param)); });

TEST_P(RenderRoomFailure, EndsTheStreamWithoutReleasingABufferAndWithoutFeedback) {
  stream_for(5);
  bench.machine.script().fail(GetParam(), kFail);
  bench.machine.run_for(10);
  expect_restarts(1);
  EXPECT_EQ(bench.machine.script().count(Step::render_release_buffer), 2u) << "one for each opening";
  EXPECT_EQ(bench.machine.script().count(Step::device_feedback), 0u);
  bench.machine.run_for(10);
  EXPECT_EQ(bench.machine.script().count(Step::device_feedback), 1u);
}

TEST_F(RenderStep, APacketThatCannotBeReleasedEndsTheStreamWithoutFeedback) {
  stream_for(5);
  bench.machine.script().fail(Step::render_release_buffer, kFail);
  bench.machine.run_for(10);
  expect_restarts(1);
  EXPECT_EQ(bench.machine.script().count(Step::device_feedback), 0u);
}

TEST_F(RenderStep, FeedbackFollowsTheRelease) {
  stream_for(15);
  EXPECT_EQ(
      bench.sequence_of({Step::client_padding, Step::render_release_buffer, Step::device_feedback}),
      names({Step::render_release_buffer, Step::client_padding, Step::render_release_buffer, Step::device_feedback}));
}

// ---- Other ends

TEST_F(RenderStep, AFailedWaitEndsTheStream) {
  stream_for(5);
  bench.machine.script().fail(Step::wait_any, error::kInvalidHandle);
  bench.machine.run_for(10);
  expect_restarts(1);
}

// ---- Underrun

// 1920 frames come every 40 ms and 480 go every 10: each fourth packet finds exactly what it needs.
TEST(RenderRing, ThatHoldsExactlyAPacketIsEnough) {
  StreamBench bench(DataFlow::render, {.pins = {.virtual_period = 1920, .trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(500);
  EXPECT_EQ(bench.stream->Statistics().fill_min, 0u);
  EXPECT_EQ(bench.stream->Statistics().underruns, 0u);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
}

/// A ring that is filled by one frame less: at 70 ms, three packets after the first, it holds 479 frames.
class RenderUnderrun : public ::testing::Test {
 protected:
  StreamBench bench{DataFlow::render, {.pins = {.virtual_period = 1919, .trim_ppm = 0}}};
};

TEST_F(RenderUnderrun, OneFrameLessThanAPacketIsAnUnderrun) {
  bench.start_streaming();
  bench.machine.run_for(60);
  EXPECT_EQ(bench.stream->Statistics().underruns, 0u);
  EXPECT_EQ(bench.stream->Statistics().fill_min, 479u);
  bench.machine.run_for(10);
  EXPECT_EQ(bench.stream->Statistics().underruns, 1u);
}

TEST_F(RenderUnderrun, IsSaidInThisOrder) {
  bench.start_streaming();
  bench.machine.run_for(70);
  std::vector<std::string> traces = bench.log.traces();
  const auto from = std::find(traces.begin(), traces.end(), std::string("[ren] ring buffer valid size is too small\n"));
  ASSERT_GE(traces.end() - from, 3);
  EXPECT_EQ(from[1], "[ren] StreamState::idle\n");
  EXPECT_EQ(from[2], "[ren] stream stopped\n");
}

TEST_F(RenderUnderrun, StillReleasesItsPacketAndSkipsTheFeedback) {
  bench.start_streaming();
  bench.machine.run_for(60);
  const std::uint64_t released = bench.machine.script().count(Step::render_release_buffer);
  std::uint64_t released_at_the_end = 0;
  bench.machine.script().before(
      Step::client_stop, 1, [&] { released_at_the_end = bench.machine.script().count(Step::render_release_buffer); });
  bench.machine.run_for(10);
  EXPECT_EQ(released_at_the_end, released + 1);
  EXPECT_THAT(bench.times_of(Step::device_feedback), ElementsAre(10));
}

TEST_F(RenderUnderrun, CostsAFullReopeningOfThePhysicalSide) {
  bench.start_streaming();
  bench.machine.run_for(70);
  EXPECT_EQ(bench.physical().initialized().size(), 2u);
  EXPECT_THAT(bench.times_of(Step::client_initialize), ElementsAre(0, 70));
  EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
}

// ---- Overrun

// A third of a buffer more comes than goes, so the last one meets a ring with some room and not enough.
TEST(RenderOverrun, ABufferThatDoesNotFitWholeIsResubmittedAndEndsTheStream) {
  StreamBench bench(DataFlow::render, {.pins = {.drift_ppm = 333'333, .trim_ppm = 0}});
  bench.start_streaming();
  std::uint64_t submitted_by_the_end = 0;
  std::uint64_t transferred_by_the_end = 0;
  bench.machine.script().before(Step::client_stop, 1, [&] {
    submitted_by_the_end = bench.machine.script().count(Step::device_transfer);
    transferred_by_the_end = bench.stream->Statistics().virtual_transfers;
  });
  bench.machine.run_for(300);
  EXPECT_EQ(bench.stream->Statistics().overruns, 1u);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
  EXPECT_EQ(bench.stream->Statistics().underruns, 0u);
  EXPECT_EQ(submitted_by_the_end, transferred_by_the_end + 4);
  EXPECT_FALSE(bench.log.has("[ren] ReleaseCurrentIOBuffer failed.\n"));
}

// Ten periods fit. Each nap in the physical step lets the four outstanding buffers complete, of which one is read:
// 960 + 3 * 480 + 4 * 480 + 480 frames fill the ring to its last byte, and the next buffer finds no room.
TEST(RenderOverrun, ABufferThatFillsTheRingToItsLastByteIsNoOverrun) {
  StreamBench bench(DataFlow::render, {.pins = {.trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(20);
  const auto nap = [&] { bench.machine.scheduler().pass(40 * sim::kMillisecond); };
  for (const std::uint64_t packet : {1u, 2u, 3u})
    bench.machine.script().before(Step::render_release_buffer, packet, nap);
  std::uint64_t transferred_by_the_end = 0;
  bench.machine.script().before(Step::client_stop, 1,
                                [&] { transferred_by_the_end = bench.stream->Statistics().virtual_transfers; });
  bench.machine.run_for(140);
  EXPECT_EQ(bench.stream->Statistics().fill_max, 3840u);
  EXPECT_EQ(bench.stream->Statistics().overruns, 1u);
  EXPECT_EQ(transferred_by_the_end, 3u + 4u + 4u + 3u) << "the second of the last four fills the ring";
}

}  // namespace
}  // namespace sonivo::test
