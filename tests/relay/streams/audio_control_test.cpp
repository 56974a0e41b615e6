// The object that the host talks to: start, stop, count of references, endpoints.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "support/relay_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Guid kIidNotificationClient{0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};

class AudioControl : public ::testing::Test {
 protected:
  CAudioControl& relay() { return *bench.relay; }
  sim::Script& script() { return bench.machine.script(); }
  std::vector<std::string> thread_names() {
    std::vector<std::string> found;
    for (const sim::ThreadInfo& thread : bench.machine.scheduler().threads()) found.push_back(thread.name);
    return found;
  }
  /// Both directions with applications.
  void stream_both() {
    bench.start();
    bench.record(pcm_format(48000, 16, 2), {});
    bench.play(pcm_format(48000, 16, 2), {});
    bench.machine.run_for(5);
  }

  RelayBench bench;
};

// ---- Start and stop

TEST_F(AudioControl, StartTellsTheDebuggerTheVersionOfTheLevelDetector) {
  relay().Start();
  EXPECT_TRUE(bench.log.has_debug_string("OutputLevelDetecor version: 0x1000000\n"));
}

TEST_F(AudioControl, StartBeginsWithTheWatchThenListensThenStartsRenderThenCapture) {
  script().start_trace();
  relay().Start();
  std::vector<std::string> steps;
  for (const std::string& line : script().trace()) steps.push_back(line.substr(line.find(' ') + 1));
  EXPECT_THAT(steps, ElementsAre("event_create", "thread_start", "endpoints_register", "thread_start", "thread_start"));
  EXPECT_THAT(thread_names(), ElementsAre("reg-notify", "render", "capture"));
}

TEST_F(AudioControl, AMissingStopEventIsOnlyLogged) {
  script().fail(Step::event_create, 1);
  stream_both();
  EXPECT_EQ(bench.log.count("[CAudioControl::Start] CreateEvent failed.\n"), 1u);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
  bench.stop();
  EXPECT_THAT(thread_names(), IsEmpty());
}

TEST_F(AudioControl, AMissingWatchThreadIsOnlyLogged) {
  script().fail(Step::thread_start, 1);
  stream_both();
  EXPECT_EQ(bench.log.count("[CAudioControl::Start] CreateThread failed.\n"), 1u);
  EXPECT_FALSE(bench.log.has("[CAudioControl::RegNotifyThread] enter\n"));
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
  bench.stop();
  EXPECT_THAT(thread_names(), IsEmpty());
}

TEST_F(AudioControl, WithoutNotificationsTheStreamsRunAllTheSame) {
  script().fail(Step::endpoints_register, kFail);
  stream_both();
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
}

TEST_F(AudioControl, StopListensNoMoreThenStopsRenderThenCapture) {
  bench.start();
  bench.machine.run_for(1);
  bench.log.clear();
  std::vector<std::string> before_the_streams{"not asked"};
  script().before(Step::endpoints_unregister, 1, [&] { before_the_streams = bench.log.traces(); });
  bench.stop();
  EXPECT_THAT(before_the_streams, IsEmpty());
  EXPECT_THAT(bench.log.traces(),
              ElementsAre("[ren] IOBuffer::WaitStream failed. 995\n", "[cap] IOBuffer::WaitStream failed. 995\n"));
  EXPECT_THAT(thread_names(), IsEmpty());
}

TEST_F(AudioControl, StopWithoutStartDoesNothing) {
  relay().Stop();
  EXPECT_THAT(bench.log.traces(), IsEmpty());
}

TEST_F(AudioControl, AfterStopNothingOfTheMachineIsHeld) {
  stream_both();
  bench.machine.run_for(100);
  bench.stop();
  bench.machine.run_for(1);
  bench.machine.desktop().set_window_procedure({});
  auto* const alone = bench.relay.release();
  EXPECT_EQ(alone->Release(), 0u);
  EXPECT_EQ(bench.machine.leaks(), sim::Leaks{});
  bench.relay = std::make_unique<CAudioControl>(bench.machine.seams(), bench.chains.factory());
}

TEST_F(AudioControl, StartAfterStopStreamsAgain) {
  stream_both();
  bench.stop();
  relay().Start();
  bench.machine.run_for(20);
  EXPECT_EQ(relay().CaptureStatistics().streams, 2u);
  EXPECT_EQ(relay().RenderStatistics().streams, 2u);
}

// ---- References

TEST(AudioControlReferences, TheLastReleaseDeletesTheObject) {
  sim::SimMachine machine;
  const ScriptedChains chains;
  auto* const relay = new CAudioControl(machine.seams(), chains.factory());
  EXPECT_GT(machine.leaks().events, 0u);
  EXPECT_EQ(relay->AddRef(), 2u);
  EXPECT_EQ(relay->Release(), 1u);
  EXPECT_GT(machine.leaks().events, 0u);
  EXPECT_EQ(relay->Release(), 0u);
  EXPECT_EQ(machine.leaks(), sim::Leaks{});
}

TEST(AudioControlReferences, AnObjectThatGoesWhileItIsStartedStopsItself) {
  const TraceLog log;
  sim::SimMachine machine;
  {
    const ScriptedChains chains;
    CAudioControl relay(machine.seams(), chains.factory());
    relay.SetEndpoint(DataFlow::capture, {});
    relay.SetEndpoint(DataFlow::render, {});
    machine.driver().open_recorder(pcm_format(48000, 16, 2));
    machine.driver().open_player(pcm_format(48000, 16, 2), sim::memory_source({}));
    relay.Start();
    machine.run_for(100);
    ASSERT_EQ(relay.Stream(DataFlow::capture).State(), StreamState::ePhysicalStreaming);
    ASSERT_EQ(relay.Stream(DataFlow::render).State(), StreamState::ePhysicalStreaming);
  }
  EXPECT_TRUE(log.has("[cap] stream stopped\n"));
  EXPECT_TRUE(log.has("[ren] stream stopped\n"));
  EXPECT_EQ(machine.leaks(), sim::Leaks{});
}

TEST_F(AudioControl, AnswersItsTwoInterfacesAndCountsThem) {
  for (const Guid& iid : {kIidUnknown, kIidNotificationClient}) {
    void* object = nullptr;
    EXPECT_EQ(relay().QueryInterface(iid, &object), kOk);
    EXPECT_EQ(object, static_cast<IMMNotificationClient*>(&relay()));
    EXPECT_EQ(relay().Release(), 1u);
  }
}

TEST_F(AudioControl, AnswersNoOtherInterface) {
  void* object = &bench;
  EXPECT_EQ(relay().QueryInterface(kIidAudioEndpointVolumeCallback, &object), kNoInterface);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(relay().AddRef(), 2u);
  EXPECT_EQ(relay().Release(), 1u);
}

TEST_F(AudioControl, TheOtherNotificationsAreTakenAndMeanNothing) {
  stream_both();
  EXPECT_EQ(relay().OnDeviceStateChanged(sim::kMicArray, kDeviceDisabled), kOk);
  EXPECT_EQ(relay().OnDeviceAdded(sim::kHeadsetMic), kOk);
  EXPECT_EQ(relay().OnDeviceRemoved(sim::kMicArray), kOk);
  EXPECT_EQ(relay().OnPropertyValueChanged(sim::kMicArray, PKEY_Device_FriendlyName), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
}

// ---- What is handed on to the streams

TEST_F(AudioControl, TheMuteWindowIsThatOfBothStreams) {
  constexpr WindowHandle kOther{0x99};
  relay().SetMuteWindow(kOther);
  stream_both();
  std::size_t recording = 0;
  for (const sim::PostedMessage& message : bench.machine.desktop().messages()) {
    EXPECT_EQ(message.window, kOther);
    recording += message.message == WM_MIC_REC_ON ? 1u : 0u;
  }
  EXPECT_EQ(recording, 2u);
}

TEST_F(AudioControl, DeviceMessagesGoToBothStreams) {
  stream_both();
  bench.machine.driver().query_remove(sim::PinId::mic);
  bench.machine.run_for(1);
  EXPECT_EQ(relay().CaptureStatistics().streams, 2u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
  bench.machine.driver().query_remove(sim::PinId::speaker);
  bench.machine.run_for(1);
  EXPECT_EQ(relay().CaptureStatistics().streams, 2u);
  EXPECT_EQ(relay().RenderStatistics().streams, 2u);
}

TEST_F(AudioControl, MuteAndNameAreThoseOfThePhysicalMicrophone) {
  bench.start();
  EXPECT_EQ(relay().SetMuteAction(true), kOk);
  EXPECT_TRUE(bench.machine.endpoint(sim::kMicArray).volume().muted());
  EXPECT_EQ(relay().SetMuteAction(false), kOk);
  EXPECT_FALSE(bench.machine.endpoint(sim::kMicArray).volume().muted());
  EXPECT_EQ(relay().CheckDeviceName("Realtek High Definition Audio"), kOk);
  EXPECT_EQ(relay().CheckDeviceName("USB Headset"), kFail);
}

// ---- Endpoints

TEST_F(AudioControl, AnEndpointOfEitherFlowGoesToItsOwnStream) {
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, sim::kHeadsetMic), kOk);
  EXPECT_EQ(relay().SetEndpoint(DataFlow::render, sim::kHeadphones), kOk);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(relay().Stream(DataFlow::render).EndpointId(), sim::kHeadphones);
}

TEST_F(AudioControl, WithoutAnIdTheConsoleDefaultOfTheFlowIsTaken) {
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, sim::kHeadsetMic);
  bench.machine.endpoints().set_default(DataFlow::render, Role::multimedia, sim::kHeadphones);
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, {}), kOk);
  EXPECT_EQ(relay().SetEndpoint(DataFlow::render, {}), kOk);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(relay().Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST_F(AudioControl, TheVirtualEndpointAsDefaultFailsAndLeavesTheStreamWithoutOne) {
  for (const DataFlow flow : {DataFlow::capture, DataFlow::render}) {
    const bool capture = flow == DataFlow::capture;
    relay().SetEndpoint(flow, {});
    bench.machine.endpoints().set_default(flow, Role::console, capture ? sim::kVirtualMic : sim::kVirtualSpeaker);
    EXPECT_EQ(relay().SetEndpoint(flow, {}), kFail);
    EXPECT_EQ(relay().Stream(flow).EndpointId(), "");
  }
}

TEST_F(AudioControl, WithTheVirtualEndpointAsDefaultTheStreamKeepsSayingThatItHasNone) {
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, sim::kVirtualMic);
  bench.start();
  bench.record(pcm_format(48000, 16, 2), {});
  bench.machine.run_for(250);
  EXPECT_EQ(bench.log.count("[cap] eWaitVirtualDriver. no endpoint id\n"), 3u);
  // It still follows the default, and streams as soon as that is a physical endpoint.
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, sim::kHeadsetMic);
  bench.machine.run_for(100);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
}

TEST_F(AudioControl, WithoutADefaultTheMachinesAnswerIsGivenAndTheStreamHasNone) {
  relay().SetEndpoint(DataFlow::capture, sim::kMicArray);
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, {});
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, {}), status_from_error(error::kNotFound));
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), "");
}

class DefaultEndpointFailure : public AudioControl, public ::testing::WithParamInterface<Step> {};
INSTANTIATE_TEST_SUITE_P(At, DefaultEndpointFailure,
                         ::testing::Values(Step::endpoints_default, Step::endpoint_open_properties,
                                           Step::endpoint_property_value, Step::endpoint_id),
                         [](const auto& test) { return std::string(to_string(test.param)); });

TEST_P(DefaultEndpointFailure, IsAnsweredAndLeavesTheStreamWithoutAnEndpoint) {
  relay().SetEndpoint(DataFlow::capture, sim::kMicArray);
  constexpr Status kRefused = status_from_error(error::kAccessDenied);
  script().fail(GetParam(), kRefused);
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, {}), kRefused);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), "");
}

TEST_F(AudioControl, TheSameEndpointInOtherLettersDoesNotDisturbARunningStream) {
  stream_both();
  std::string id = sim::kMicArray;
  std::transform(id.begin(), id.end(), id.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, id), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
}

TEST_F(AudioControl, WithForceEvenTheSameEndpointIsOpenedAnew) {
  stream_both();
  EXPECT_EQ(relay().SetEndpointForce(DataFlow::capture, sim::kMicArray), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().CaptureStatistics().streams, 2u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
}

TEST_F(AudioControl, WithForceAndNoIdEvenTheSameDefaultIsOpenedAnew) {
  stream_both();
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, {}), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
  EXPECT_EQ(relay().SetEndpointForce(DataFlow::capture, {}), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().CaptureStatistics().streams, 2u);
  EXPECT_EQ(relay().RenderStatistics().streams, 1u);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
}

TEST_F(AudioControl, AnotherEndpointMovesARunningStream) {
  stream_both();
  EXPECT_EQ(relay().SetEndpoint(DataFlow::render, sim::kHeadphones), kOk);
  bench.machine.run_for(50);
  EXPECT_EQ(relay().RenderStatistics().streams, 2u);
  EXPECT_EQ(bench.machine.endpoint(sim::kHeadphones).initialized().size(), 1u);
  EXPECT_EQ(relay().CaptureStatistics().streams, 1u);
}

TEST_F(AudioControl, WithoutForceAnAbsentEndpointCountsAsDifferentEachTime) {
  bench.machine.endpoints().set_default(DataFlow::capture, Role::console, {});
  relay().SetEndpoint(DataFlow::capture, sim::kMicArray);
  EXPECT_EQ(bench.machine.endpoint(sim::kMicArray).volume().callbacks().size(), 1u);
  relay().SetEndpoint(DataFlow::capture, {});
  EXPECT_EQ(bench.machine.endpoint(sim::kMicArray).volume().callbacks().size(), 0u);
  relay().SetEndpoint(DataFlow::capture, sim::kMicArray);
  EXPECT_EQ(bench.machine.endpoint(sim::kMicArray).volume().callbacks().size(), 1u);
}

TEST_F(AudioControl, AnEndpointThatIsNotThereFails) {
  EXPECT_EQ(relay().SetEndpoint(DataFlow::capture, "{0.0.1.00000000}.{none}"), kFail);
  EXPECT_EQ(relay().Stream(DataFlow::capture).EndpointId(), "{0.0.1.00000000}.{none}");
}

}  // namespace
}  // namespace sonivo::test
