// How the fill of the stream ring trims the clock of the virtual stream.

#include "relay/feedback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "relay/ring_buffer.h"
#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

constexpr std::uint32_t kLow = 1920;
constexpr std::uint32_t kHigh = 3840;

std::int32_t of(DataFlow flow, std::uint32_t v) { return feedback_value(flow, v, kLow, kHigh); }

TEST(FeedbackValue, OfCaptureSlowsDownBelowTheLowMarkAndSpeedsUpAboveTheHighOne) {
  EXPECT_EQ(of(DataFlow::capture, 0), -1);
  EXPECT_EQ(of(DataFlow::capture, kLow - 1), -1);
  EXPECT_EQ(of(DataFlow::capture, kLow), 0);
  EXPECT_EQ(of(DataFlow::capture, kHigh), 0);
  EXPECT_EQ(of(DataFlow::capture, kHigh + 1), 1);
}

TEST(FeedbackValue, OfRenderSpeedsUpBelowTheLowMarkAndSlowsDownAboveTheHighOne) {
  EXPECT_EQ(of(DataFlow::render, 0), 1);
  EXPECT_EQ(of(DataFlow::render, kLow - 1), 1);
  EXPECT_EQ(of(DataFlow::render, kLow), 0);
  EXPECT_EQ(of(DataFlow::render, kHigh), 0);
  EXPECT_EQ(of(DataFlow::render, kHigh + 1), -1);
}

TEST(FeedbackValue, OfARingThatHasNoMinimumYetIsTheHighSide) {
  EXPECT_EQ(of(DataFlow::capture, RingBuffer::kNoMinimum), 1);
  EXPECT_EQ(of(DataFlow::render, RingBuffer::kNoMinimum), -1);
}

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

}  // namespace
}  // namespace sonivo::test
