// How the fill of the stream ring trims the clock of the virtual stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

/// Streams whose virtual clock isn't moved by the feedback, so that the fill is known.
class Feedback : public ::testing::TestWithParam<DataFlow> {
 protected:
  bool capture() const { return GetParam() == DataFlow::capture; }
  std::int32_t high_side() const { return capture() ? 1 : -1; }
  std::vector<std::int32_t> values() const {
    std::vector<std::int32_t> found;
    for (const sim::FeedbackRecord& record : bench.machine.driver().feedback(bench.pin)) found.push_back(record.value);
    return found;
  }

  StreamBench bench{GetParam(), {.pins = {.trim_ppm = 0}}};
};
INSTANTIATE_TEST_SUITE_P(Of, Feedback, both_directions(), direction_name);

TEST_P(Feedback, TheFirstValueIsTheHighSideAndIsSentAfterTheFirstTransfer) {
  bench.start_streaming();
  EXPECT_THAT(values(), ElementsAre());
  bench.machine.run_for(10);
  EXPECT_THAT(values(), ElementsAre(high_side()));
  EXPECT_THAT(bench.times_of(Step::device_feedback), ElementsAre(10));
  EXPECT_EQ(bench.log.count(capture() ? "[cap] feedback 1\n" : "[ren] feedback -1\n"), 1u);
  EXPECT_EQ(bench.stream->Statistics().feedback, high_side());
}

TEST_P(Feedback, AValueIsSentOnlyWhenItChanges) {
  bench.start_streaming();
  bench.machine.run_for(900);
  EXPECT_EQ(bench.machine.script().count(Step::device_feedback), 1u);
}

// Three periods of lead, read period by period, leave two in the ring: 20 ms, the high mark itself.
TEST_P(Feedback, AfterTheFirstSecondTheMinimumOfTheRingDecides) {
  bench.start_streaming();
  bench.machine.run_for(1100);
  EXPECT_THAT(values(), ElementsAre(high_side(), 0));
  EXPECT_THAT(bench.times_of(Step::device_feedback), ElementsAre(10, 1000));
  EXPECT_EQ(bench.log.count(bench.text(" feedback 0\n")), 1u);
}

TEST_P(Feedback, TheValueAndTheStatisticOutliveTheStream) {
  bench.start_streaming();
  bench.machine.run_for(1100);
  bench.stream->RequestRestart();
  bench.machine.run_for(500);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
  EXPECT_THAT(values(), ElementsAre(high_side(), 0));
}

TEST_P(Feedback, ARefusedValueIsNotSentAgainAndDoesNotEndTheStream) {
  bench.machine.script().fail(Step::device_feedback, error::kInvalidFunction);
  bench.start_streaming();
  bench.machine.run_for(900);
  EXPECT_EQ(bench.machine.script().count(Step::device_feedback), 1u);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
  EXPECT_EQ(bench.stream->Statistics().feedback_changes, 1u);
}

TEST_P(Feedback, TheMarksAreTenAndTwentyMillisecondsAtAnyRate) {
  bench.start();
  bench.open_application(pcm_format(44100, 24, 2));
  bench.machine.endpoint(bench.virtual_id).set_period(441);
  bench.machine.run_for(1100);
  EXPECT_THAT(values(), ElementsAre(high_side(), 0));
}

// Reads of 10 ms empty a ring that is filled by 30 ms at a time down to the last frame.
TEST(FeedbackOfRender, SpeedsTheVirtualSpeakerUpWhenTheRingRunsLow) {
  StreamBench bench(DataFlow::render, {.pins = {.virtual_period = 1440, .trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(1100);
  EXPECT_EQ(bench.log.count("[ren] feedback 1\n"), 1u);
  EXPECT_EQ(bench.stream->Statistics().feedback, 1);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
}

// 15 ms at a time leave 10 ms at the lowest: the low mark itself.
TEST(FeedbackOfRender, LeavesTheVirtualSpeakerAloneAtTheLowMark) {
  StreamBench bench(DataFlow::render, {.pins = {.virtual_period = 720, .trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(1100);
  EXPECT_EQ(bench.stream->Statistics().fill_min, 480u);
  EXPECT_EQ(bench.stream->Statistics().feedback, 0);
}

/// What the virtual microphone's ring and feedback come to when it is emptied by `period` frames at a time: a transfer
/// that is due together with a packet is served first, and the ring is ready once it holds 1440 frames.
struct CaptureFeedback {
  explicit CaptureFeedback(std::uint32_t period) {
    StreamBench bench(DataFlow::capture, {.pins = {.virtual_period = period, .trim_ppm = 0}});
    bench.start_streaming();
    bench.machine.run_for(1100);
    minimum = bench.stream->Statistics().ring_minimum;
    EXPECT_EQ(bench.stream->Statistics().underruns, 0u);
    for (const sim::FeedbackRecord& record : bench.machine.driver().feedback(bench.pin)) values.push_back(record.value);
  }

  std::uint32_t minimum = 0;  ///< of the first second, in frames
  std::vector<std::int32_t> values;
};

// 48 transfers of 950 frames take 950 ms, when the ring has had 94 blocks and has given 47 transfers.
TEST(FeedbackOfCapture, SlowsTheVirtualMicrophoneDownBelowTheLowMark) {
  const CaptureFeedback ten_frames_below(950);
  EXPECT_EQ(ten_frames_below.minimum, 470u);
  EXPECT_THAT(ten_frames_below.values, ElementsAre(1, -1));
}

TEST(FeedbackOfCapture, LeavesTheVirtualMicrophoneAloneAtTheLowMark) {
  const CaptureFeedback at_10_ms(960);
  EXPECT_EQ(at_10_ms.minimum, 480u);
  EXPECT_THAT(at_10_ms.values, ElementsAre(1, 0));
}

TEST(FeedbackOfCapture, LeavesTheVirtualMicrophoneAloneAtTheHighMark) {
  const CaptureFeedback at_20_ms(480);
  EXPECT_EQ(at_20_ms.minimum, 960u);
  EXPECT_THAT(at_20_ms.values, ElementsAre(1, 0));
}

// The fourth transfer is the first from a ring that is ready, a frame's length ahead of the fourth block: 1440 - 479.
TEST(FeedbackOfCapture, GoesOnSpeedingTheVirtualMicrophoneUpAboveTheHighMark) {
  const CaptureFeedback one_frame_above(479);
  EXPECT_EQ(one_frame_above.minimum, 961u);
  EXPECT_THAT(one_frame_above.values, ElementsAre(1));
}

/// Clocks that drift apart, which the trim can make up for twice over.
class FeedbackUnderDrift : public ::testing::TestWithParam<double> {};
INSTANTIATE_TEST_SUITE_P(Ppm, FeedbackUnderDrift, ::testing::Values(-5000.0, 5000.0),
                         [](const auto& drift) { return drift.param < 0 ? "Slower" : "Faster"; });

TEST_P(FeedbackUnderDrift, IsThatOfTheLatestMinimumAtAllTimes) {
  StreamBench bench(DataFlow::capture, {.pins = {.drift_ppm = GetParam(), .trim_ppm = 10'000}});
  bench.start_streaming();
  bench.machine.run_for(1100);
  std::set<std::int32_t> seen;
  for (int ms = 0; ms < 10'000; ms += 5) {
    bench.machine.run_for(5);
    const StreamStatistics statistics = bench.stream->Statistics();
    ASSERT_EQ(statistics.feedback, statistics.ring_minimum < 480 ? -1 : statistics.ring_minimum <= 960 ? 0 : 1);
    seen.insert(statistics.feedback);
  }
  EXPECT_THAT(seen, GetParam() < 0 ? ElementsAre(0, 1) : ElementsAre(-1, 0));
  EXPECT_EQ(bench.stream->Statistics().underruns, 0u);
}

}  // namespace
}  // namespace sonivo::test
