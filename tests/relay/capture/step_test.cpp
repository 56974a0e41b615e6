// What the stream does at each of its wake-ups, and the order of the operations.

#include "capture_bench.h"

namespace sonivo::test {
namespace {

using ::testing::ElementsAre;

const std::vector<Step> kStepsOfAWakeUp{
    Step::wait_any,      Step::device_result,        Step::device_transfer,        Step::device_feedback,
    Step::client_stop,   Step::client_reset,         Step::client_start,           Step::capture_get_buffer,
    Step::device_cancel, Step::client_engine_period, Step::capture_release_buffer, Step::client_initialize};

/// A relay that streams 16-bit stereo from `origin` on, every step of the machine traced.
class CaptureStep : public ::testing::Test {
 protected:
  void stream() {
    start_idle(bench_);
    origin_ = bench_.machine.scheduler().now();
    bench_.machine.script().start_trace();
    record_stereo(bench_);
  }
  std::vector<std::string> wake_up_at(std::uint32_t ms) {
    return only(steps_at(bench_.machine, origin_, ms), kStepsOfAWakeUp);
  }
  /// Traces from the first one that equals `text` on.
  std::vector<std::string> traces_from(const std::string& text) {
    const auto traces = bench_.log.traces();
    return {std::find(traces.begin(), traces.end(), text), traces.end()};
  }
  StreamState state() { return bench_.relay->Stream(DataFlow::capture).State(); }

  RelayBench bench_{untrimmed()};
  sim::Time origin_ = 0;
};

TEST_F(CaptureStep, ServesTheVirtualMicrophoneBeforeThePhysicalOneAndFeedsBackLast) {
  stream();
  bench_.machine.run_for(15);
  EXPECT_THAT(wake_up_at(10), ElementsAre("device_result", "device_transfer", "device_feedback", "wait_any",
                                          "capture_get_buffer", "capture_release_buffer", "wait_any"));
}

TEST_F(CaptureStep, SendsNoFeedbackWhileTheValueStays) {
  stream();
  bench_.machine.run_for(25);
  EXPECT_THAT(wake_up_at(20), ElementsAre("device_result", "device_transfer", "wait_any", "capture_get_buffer",
                                          "capture_release_buffer", "wait_any"));
}

TEST_F(CaptureStep, ResubmitsAndFeedsBackEvenWhenATransferFailed) {
  stream();
  bench_.machine.run_for(5);
  bench_.machine.script().fail(Step::device_result, error::kDeviceNotConnected);
  bench_.machine.run_for(7);
  const auto steps = wake_up_at(10);
  ASSERT_GE(steps.size(), 4u);
  EXPECT_THAT((std::vector(steps.begin(), steps.begin() + 4)),
              ElementsAre("device_result", "device_transfer", "device_feedback", "client_stop"));
}

TEST_F(CaptureStep, EndsTheStreamWhenATransferFailed) {
  stream();
  bench_.machine.run_for(5);
  bench_.log.clear();
  bench_.machine.script().fail(Step::device_result, error::kDeviceNotConnected);
  bench_.machine.run_for(7);
  EXPECT_EQ(bench_.log.count("[cap] virtual mic xfer error\n"), 1u);
  EXPECT_EQ(bench_.log.count("[cap] stream stopped\n"), 1u);
  EXPECT_EQ(bench_.log.count("[cap] ReleaseCurrentIOBuffer failed.\n"), 0u);
  EXPECT_THAT(bench_.log.states("[cap]"),
              ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming", "ePhysicalStreaming"));
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

TEST_F(CaptureStep, EndsTheStreamWhenTheBufferCantBeSubmittedAgainAndStillFeedsBack) {
  stream();
  bench_.machine.run_for(5);
  bench_.log.clear();
  bench_.machine.script().fail(Step::device_transfer, error::kInvalidParameter);
  bench_.machine.run_for(7);
  EXPECT_EQ(bench_.log.count("[cap] ReleaseCurrentIOBuffer failed.\n"), 1u);
  EXPECT_EQ(bench_.log.count("[cap] virtual mic xfer error\n"), 0u);
  EXPECT_EQ(bench_.log.count("[cap] stream stopped\n"), 1u);
  const auto steps = wake_up_at(10);
  ASSERT_GE(steps.size(), 4u);
  EXPECT_THAT((std::vector(steps.begin(), steps.begin() + 4)),
              ElementsAre("device_result", "device_transfer", "device_feedback", "client_stop"));
}

TEST_F(CaptureStep, TellsOfTheTransferAndOfTheResubmissionWhenTheApplicationGoes) {
  stream();
  bench_.machine.run_for(55);
  bench_.log.clear();
  bench_.machine.driver().close_client(sim::PinId::mic);
  bench_.machine.run_for(1);
  const auto texts = traces_from("[cap] virtual mic xfer error\n");
  ASSERT_GE(texts.size(), 3u);
  EXPECT_EQ(texts[1], "[cap] ReleaseCurrentIOBuffer failed.\n");
  EXPECT_EQ(texts[2], "[cap] stream stopped\n");
  EXPECT_EQ(state(), StreamState::eWaitVirtualStream);
}

TEST_F(CaptureStep, EndsTheStreamWithoutAReleaseWhenThePacketCantBeHad) {
  stream();
  bench_.machine.run_for(15);
  bench_.log.clear();
  bench_.machine.script().fail(Step::capture_get_buffer, status_bits(0x88890004));
  bench_.machine.run_for(7);
  const auto texts = traces_from("[cap] IAudioCaptureClient::GetBuffer error 88890004\n");
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[1], "[cap] stream stopped\n");
  const auto steps = wake_up_at(20);
  ASSERT_GE(steps.size(), 5u);
  EXPECT_THAT((std::vector(steps.begin(), steps.begin() + 5)),
              ElementsAre("device_result", "device_transfer", "wait_any", "capture_get_buffer", "client_stop"));
}

TEST_F(CaptureStep, EndsTheStreamAtTheStopEvent) {
  stream();
  bench_.machine.run_for(55);
  bench_.log.clear();
  bench_.relay->Stream(DataFlow::capture).RequestRestart();
  bench_.machine.run_for(1);
  const auto texts = traces_from("[cap] thread stop event\n");
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[1], "[cap] stream stopped\n");
  EXPECT_EQ(state(), StreamState::ePhysicalStreaming);  // all was opened anew
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

TEST_F(CaptureStep, ServesBothDirectionsBeforeTheStopEvent) {
  stream();
  bench_.machine.run_for(15);
  // Placed on the stream thread, at the first of the two wake-ups of this instant.
  bench_.machine.script().before(Step::device_result, 1,
                                 [&] { bench_.relay->Stream(DataFlow::capture).RequestRestart(); });
  bench_.machine.run_for(7);
  const auto steps = wake_up_at(20);
  ASSERT_GE(steps.size(), 7u);
  EXPECT_THAT((std::vector(steps.begin(), steps.begin() + 7)),
              ElementsAre("device_result", "device_transfer", "wait_any", "capture_get_buffer",
                          "capture_release_buffer", "wait_any", "client_stop"));
}

TEST_F(CaptureStep, EndsTheStreamWhenItCantWait) {
  stream();
  bench_.machine.run_for(15);
  bench_.log.clear();
  bench_.machine.script().fail(Step::wait_any, error::kInvalidHandle);
  bench_.machine.run_for(7);
  const auto texts = traces_from("[cap] thread stop with error 6\n");
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[1], "[cap] stream stopped\n");
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1, 0, 1}));
}

/// Buffers of 400 frames against packets of 480: at 60 ms the stream thread falls asleep for 58 ms over packet 6, so
/// that all four outstanding buffers complete, and finds 1280 frames in the ring for the 1600 wanted.
class CaptureUnderrun : public ::testing::Test {
 protected:
  CaptureUnderrun() {
    start_idle(bench_);
    origin_ = bench_.machine.scheduler().now();
    bench_.machine.script().before(Step::capture_get_buffer, 6,
                                   [this] { bench_.machine.scheduler().pass(58 * sim::kMillisecond); });
    bench_.machine.script().start_trace();
    record_stereo(bench_);
  }

  RelayBench bench_{untrimmed({.virtual_period = 400})};
  sim::Time origin_ = 0;
};

TEST_F(CaptureUnderrun, StopsResetsAndStartsThePhysicalClientBeforeTheBufferGoesOutAgain) {
  bench_.machine.run_for(119);
  EXPECT_EQ(bench_.log.count("[cap] virtual mic: too small available data in ring buffer\n"), 1u);
  const auto steps = only(steps_at(bench_.machine, origin_, 118), kStepsOfAWakeUp);
  EXPECT_THAT(steps,
              ElementsAre("capture_release_buffer", "wait_any",                            //
                          "device_result", "device_transfer", "wait_any",                  //
                          "device_result", "device_transfer", "wait_any",                  //
                          "device_result", "device_transfer", "wait_any",                  //
                          "device_result", "client_stop", "client_reset", "client_start",  //
                          "device_transfer", "wait_any", "capture_get_buffer", "capture_release_buffer", "wait_any"));
}

TEST_F(CaptureUnderrun, LeavesStaleBytesInTheTailAndStartsOverWithSilence) {
  bench_.machine.run_for(220);
  // Block index is the place in the processed stream, which begins with 3 ms of silence.
  const auto mic = microphone();
  const auto processed = join({zeros(144), cut(mic, 0, 6 * 480)});
  // The five packets of the sleep are dropped by the reset; the 3 ms in the PRE buffer stay.
  const auto after_restart = join({cut(processed, 6 * 480, 144), cut_from(mic, 11 * 480)});
  const auto expected = join({zeros(4 * 400),              // outstanding from the start
                              zeros(3 * 400),              // went out before the ring was ready
                              cut(processed, 0, 4 * 400),  // went out before the sleep
                              zeros(3 * 400),              // nothing was outstanding
                              cut(processed, 1600, 1280),  // all that was in the ring
                              cut(processed, 1280, 320),   // left in that buffer from its last use
                              zeros(3 * 400),              // until the ring has 30 ms again
                              cut(after_restart, 0, 4 * 400)});
  const auto heard = bench_.machine.driver().recording();
  ASSERT_GE(heard.size(), expected.size());
  EXPECT_TRUE(same_pcm(cut(heard, 0, expected.size() / 4), expected));
  EXPECT_EQ(bench_.machine.endpoint(sim::kMicArray).capture_stats().dropped_frames, 5u * 480);
}

TEST_F(CaptureUnderrun, DoesntEndTheStream) {
  bench_.machine.run_for(220);
  EXPECT_EQ(recording_states(bench_), (std::vector<std::uint64_t>{1}));
  EXPECT_EQ(bench_.relay->CaptureStatistics().streams, 1u);
  EXPECT_EQ(bench_.relay->CaptureStatistics().underruns, 1u);
}

}  // namespace
}  // namespace sonivo::test
