// The fourth state: setting up the transfers, ending the stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

class PhysicalStreaming : public EachDirection {
 protected:
  /// The traces from the first one that equals `text` on.
  std::vector<std::string> traces_from(const std::string& text) const {
    const std::vector<std::string> all = bench.log.traces();
    return {std::find(all.begin(), all.end(), text), all.end()};
  }
  /// The stream has ended once and runs again, without any pause in between.
  void expect_one_restart_without_pause() {
    EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
    EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
    EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0, 1));
    EXPECT_EQ(bench.physical().initialized().size(), 2u);
    EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
    EXPECT_EQ(bench.machine.leaks().audio_clients, 1u);
  }
};
INSTANTIATE_TEST_SUITE_P(Of, PhysicalStreaming, both_directions(), direction_name);

// ---- Audio class

TEST_P(PhysicalStreaming, RunsUnderTheAudioClassAndLeavesItAtTheEnd) {
  bench.start_streaming();
  ASSERT_EQ(bench.machine.scheduler().threads().size(), 1u);
  EXPECT_TRUE(bench.machine.scheduler().threads()[0].in_audio_class);
  bench.close_application();
  bench.machine.run_for(20);
  EXPECT_FALSE(bench.machine.scheduler().threads()[0].in_audio_class);
}

TEST_P(PhysicalStreaming, ARefusedAudioClassIsTolerated) {
  bench.machine.script().fail_always(Step::audio_class_enter, 1);
  bench.start_streaming();
  bench.machine.run_for(100);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
  EXPECT_EQ(bench.stream->Statistics().virtual_transfers, 10u);
}

// ---- Transfers

TEST_P(PhysicalStreaming, SubmitsFourTransfersOfOneVirtualPeriod) {
  bench.start_streaming();
  EXPECT_EQ(bench.log.count(bench.text(" virtual endpoint current period in frames:480\n")), 1u);
  EXPECT_EQ(bench.machine.script().count(Step::device_transfer), 4u);
  EXPECT_EQ(bench.machine.driver().pending_requests(), 4u);
}

TEST_P(PhysicalStreaming, ResubmitsEachTransferSoThatFourAreAlwaysOutstanding) {
  bench.start_streaming();
  bench.machine.run_for(100);
  EXPECT_EQ(bench.machine.script().count(Step::device_transfer), 14u);
  EXPECT_EQ(bench.machine.driver().pending_requests(), 4u);
  EXPECT_EQ(bench.machine.driver().stats(bench.pin).starved_frames, 0u);
}

TEST(PhysicalStreamingOf, TheTransfersFollowThePeriodOfTheVirtualEndpoint) {
  for (const DataFlow flow : {DataFlow::capture, DataFlow::render}) {
    StreamBench bench(flow, {.pins = {.virtual_period = 960}});
    bench.start_streaming();
    EXPECT_EQ(bench.log.count(bench.text(" virtual endpoint current period in frames:960\n")), 1u);
    bench.machine.run_for(14);
    EXPECT_EQ(bench.machine.driver().stats(bench.pin).transfers, 0u);
    bench.machine.run_for(2);
    EXPECT_EQ(bench.machine.driver().stats(bench.pin).transfers, 1u);
    EXPECT_EQ(bench.machine.driver().stats(bench.pin).frames, 960u);
  }
}

TEST(PhysicalStreamingOfCapture, TheFirstTransfersCarrySilence) {
  StreamBench bench(DataFlow::capture);
  bench.physical().set_source(sim::memory_source(numbered_pcm(48000, 16, 2)));
  bench.start_streaming();
  bench.machine.run_for(40);
  const std::vector<std::byte> heard = bench.machine.driver().recording();
  EXPECT_EQ(heard, std::vector<std::byte>(4 * 480 * 4));
}

// ---- Failures of the set-up

TEST_P(PhysicalStreaming, AnUnknownPeriodEndsTheStreamAtOnce) {
  bench.machine.script().fail(Step::client_engine_period, kFail);
  bench.start_streaming();
  expect_one_restart_without_pause();
  EXPECT_EQ(bench.log.count(bench.text(" virtual endpoint current period in frames:480\n")), 1u);
  EXPECT_EQ(bench.machine.script().count(Step::device_transfer), 4u);
}

TEST_P(PhysicalStreaming, AVirtualEndpointThatCannotBeActivatedEndsTheStreamAtOnce) {
  bench.machine.script().fail(Step::endpoint_activate_client, kFail, 2);
  bench.start_streaming();
  expect_one_restart_without_pause();
}

TEST_P(PhysicalStreaming, AMissingVirtualEndpointEndsTheStreamAtOnce) {
  bench.start();
  bench.machine.run_for(1);
  const std::string name = bench.virtual_endpoint().settings.name;
  bench.machine.script().before(Step::client_start, 1,
                                [&] { bench.machine.endpoints().rename(bench.virtual_id, "Line"); });
  bench.machine.script().before(Step::client_stop, 1,
                                [&] { bench.machine.endpoints().rename(bench.virtual_id, name); });
  bench.open_application();
  bench.machine.run_for(5);
  expect_one_restart_without_pause();
}

TEST_P(PhysicalStreaming, ARefusedTransferEndsTheStreamAndTheOthersAreNotSubmitted) {
  bench.machine.script().fail(Step::device_transfer, error::kAccessDenied, 3);
  bench.machine.script().before(Step::client_stop, 1,
                                [&] { EXPECT_EQ(bench.machine.script().count(Step::device_transfer), 3u); });
  bench.start_streaming();
  EXPECT_EQ(bench.log.count(bench.text(" I/O request error. (0x5)\n")), 1u);
  expect_one_restart_without_pause();
  EXPECT_EQ(bench.machine.driver().pending_requests(), 4u);
}

TEST_P(PhysicalStreaming, ATransferWithoutAnEventEndsTheStreamToo) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(Step::event_create, 1);
  bench.open_application();
  bench.machine.run_for(5);
  EXPECT_EQ(bench.log.count(bench.text(" I/O request error. (0x6)\n")), 1u);
  expect_one_restart_without_pause();
}

// ---- Ends of the stream

TEST_P(PhysicalStreaming, ARequestToRestartEndsTheStreamAtOnceAndNotTheThread) {
  bench.start_streaming();
  const std::uint64_t before = bench.now_ms();
  bench.stream->RequestRestart();
  bench.machine.run_for(1);
  expect_one_restart_without_pause();
  EXPECT_EQ(bench.times_of(Step::client_initialize).back(), before);
  EXPECT_EQ(bench.stream->Statistics().streams, 2u);
}

TEST_P(PhysicalStreaming, TheEndOfAStreamIsTracedInOrder) {
  bench.start_streaming();
  bench.log.clear();
  bench.stream->RequestRestart();
  bench.machine.run_for(1);
  const auto traces = traces_from(bench.text(" stream stopped\n"));
  ASSERT_GE(traces.size(), 4u);
  EXPECT_EQ(traces[1], bench.text(" RestoreMuteState() -- enter\n"));
  EXPECT_EQ(traces[2], bench.text(" RestoreMuteState() -- leave\n"));
  EXPECT_EQ(traces[3], bench.text(" eWaitVirtualDriver\n"));
}

TEST_P(PhysicalStreaming, TheEndClosesThePhysicalSideBeforeItTellsTheWindow) {
  bench.start_streaming();
  bench.machine.script().before(Step::post_message, 1, [&] {
    EXPECT_EQ(bench.machine.script().count(Step::client_stop), 1u);
    EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
    EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
    EXPECT_EQ(bench.physical().volume().level(), 0.5f);
    EXPECT_TRUE(bench.machine.scheduler().threads()[0].in_audio_class);
  });
  bench.stream->Stop();
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0));
}

TEST_P(PhysicalStreaming, AnApplicationThatLeavesEndsTheStream) {
  bench.start_streaming();
  bench.close_application();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(capture() ? "[cap] virtual mic xfer error\n" : "[ren] virtual stream error. 1167\n"), 1u);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0));
  EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
}

TEST_P(PhysicalStreaming, AVirtualDeviceThatGoesAwayEndsTheStream) {
  bench.start_streaming();
  bench.machine.driver().surprise_remove(bench.pin);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
  EXPECT_EQ(bench.machine.driver().handles().open(), 0u);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
}

TEST_P(PhysicalStreaming, APhysicalEndpointThatGoesAwayEndsTheStream) {
  bench.start_streaming();
  bench.machine.endpoints().remove(bench.physical_id);
  bench.machine.run_for(20);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0));
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
}

TEST_P(PhysicalStreaming, AnEndpointChangeEndsTheStreamAndTheNewEndpointIsTakenAtTheClose) {
  bench.start_streaming();
  EXPECT_EQ(bench.stream->SetEndpointId(bench.other_id), kOk);
  EXPECT_EQ(bench.other().volume().callbacks().size(), 0u) << "the change waits for the close";
  bool taken_before_the_message = false;
  const std::uint64_t end_message = capture() ? 2 : 1;  // the mute of the new microphone is told first
  bench.machine.script().before(Step::post_message, end_message,
                                [&] { taken_before_the_message = bench.other().volume().callbacks().size() == 1; });
  bench.machine.run_for(4);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 0u) << "nothing woke the stream so far";
  bench.machine.run_for(2);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
  EXPECT_TRUE(taken_before_the_message);
  EXPECT_EQ(bench.physical().initialized().size(), 1u);
  EXPECT_EQ(bench.other().initialized().size(), 1u);
  EXPECT_EQ(bench.other().volume().callbacks().size(), 1u);
  EXPECT_EQ(bench.physical().volume().callbacks().size(), 0u);
  EXPECT_EQ(bench.machine.script().count(Step::sleep), 0u);
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1, 0, 1));
}

TEST_P(PhysicalStreaming, AnEndpointTakenAwayWhileStreamingLeavesTheStreamWithoutOne) {
  bench.start_streaming();
  EXPECT_EQ(bench.stream->SetEndpointId({}), kOk);
  bench.machine.run_for(10);
  EXPECT_EQ(bench.log.count(bench.text(" stream stopped\n")), 1u);
  EXPECT_EQ(bench.log.count(bench.text(" eWaitVirtualDriver. no endpoint id\n")), 1u);
  EXPECT_THAT(bench.times_of(Step::sleep), ElementsAre(10));
}

TEST(PhysicalStreamingOfCapture, AnEndpointChangePutsTheLevelOfTheOldEndpointBack) {
  StreamBench bench(DataFlow::capture);
  bench.start_streaming();
  bench.stream->SetEndpointId(bench.other_id);
  bench.machine.run_for(10);
  EXPECT_EQ(bench.physical().volume().level(), 0.5f);
  EXPECT_EQ(bench.other().volume().level(), 0.9f);
}

TEST_P(PhysicalStreaming, WithoutAVirtualVolumeItStreamsAndSaysSoAtTheEnd) {
  bench.stream->SetEndpointId(bench.physical_id);
  bench.machine.script().fail(Step::endpoint_open_properties, kFail);
  bench.stream->Start();
  bench.open_application();
  bench.machine.run_for(100);
  EXPECT_EQ(bench.log.count(bench.text(" GetVirtualEndpointVolume failed.\n")), 1u);
  EXPECT_EQ(bench.stream->Statistics().streams, 1u);
  bench.stream->Stop();
  const auto traces = traces_from(bench.text(" RestoreMuteState() -- enter\n"));
  ASSERT_GE(traces.size(), 3u);
  EXPECT_EQ(traces[1], bench.text(" invalid parameter\n"));
  EXPECT_EQ(traces[2], bench.text(" RestoreMuteState() -- leave\n"));
  EXPECT_FALSE(bench.log.has(bench.text(" saved mute state: FALSE\n")));
}

}  // namespace
}  // namespace sonivo::test
