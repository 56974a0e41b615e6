// The third state: opening of the physical endpoint.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class VirtualStreaming : public EachDirection {
 protected:
  /// The stream with its endpoint, waiting for an application.
  void wait_for_application() {
    bench.start();
    bench.machine.run_for(1);
  }
  /// An application comes; the first attempt to open the physical endpoint is made and, by what was scripted, fails.
  void expect_one_failed_attempt() {
    const std::uint64_t start = bench.now_ms();
    bench.open_application();
    bench.machine.run_for(99);
    EXPECT_EQ(bench.stream->State(), StreamState::eVirtualStreaming);
    EXPECT_THAT(bench.recording_messages(), IsEmpty());
    EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
    EXPECT_EQ(bench.machine.leaks().audio_services, 0u);
    bench.machine.run_for(2);
    EXPECT_THAT(bench.times_of(Step::sleep), ElementsAre(start));
    EXPECT_THAT(bench.times_of(Step::device_wait_stream), ElementsAre(0, start + 100));
    EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
    EXPECT_THAT(bench.states(),
                ElementsAre("eWaitVirtualDriver", "eWaitVirtualStream", "eVirtualStreaming", "eWaitVirtualDriver",
                            "eWaitVirtualStream", "eVirtualStreaming", "ePhysicalStreaming"));
  }
};
INSTANTIATE_TEST_SUITE_P(Of, VirtualStreaming, both_directions(), direction_name);

TEST_P(VirtualStreaming, WithoutAnEndpointIdLeadsBackAfterATenthOfASecond) {
  bench.open_application();
  bench.stream->Start();
  bench.machine.run_for(250);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0, 100, 200));
  EXPECT_EQ(bench.log.count(bench.text(" eWaitVirtualDriver. no endpoint id\n")), 3u);
  EXPECT_EQ(bench.machine.script().count(Step::endpoint_activate_client), 0u);
  EXPECT_THAT(bench.recording_messages(), IsEmpty());
}

TEST_P(VirtualStreaming, AnEndpointThatIsNotThereLeadsBackAfterATenthOfASecond) {
  bench.open_application();
  EXPECT_EQ(bench.stream->SetEndpointId("{0.0.2.00000000}.{none}"), kFail);
  bench.stream->Start();
  bench.machine.run_for(250);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0, 100, 200));
  EXPECT_FALSE(bench.log.has(bench.text(" eWaitVirtualDriver. no endpoint id\n")));
  EXPECT_EQ(bench.machine.script().count(Step::endpoint_activate_client), 0u);
}

TEST_P(VirtualStreaming, AClientThatCannotBeActivatedIsTriedAgain) {
  wait_for_application();
  bench.machine.script().fail(Step::endpoint_activate_client, kFail);
  expect_one_failed_attempt();
  EXPECT_EQ(bench.log.count(bench.text(" IMMDevice::Activate failed.\n")), 1u);
}

TEST_P(VirtualStreaming, AClientThatCannotBeInitializedIsStoppedLetGoAndTriedAgain) {
  wait_for_application();
  bench.machine.script().fail(Step::client_initialize, kFail);
  bench.machine.script().before(Step::sleep, 1,
                                [&] { EXPECT_EQ(bench.machine.script().count(Step::client_stop), 1u); });
  expect_one_failed_attempt();
}

TEST_P(VirtualStreaming, AnEndpointChangedDuringAFailedOpeningIsTheOneOfTheNextAttempt) {
  wait_for_application();
  bench.machine.script().before(Step::client_initialize, 1,
                                [&] { EXPECT_EQ(bench.stream->SetEndpointId(bench.other_id), kOk); });
  bench.machine.script().fail(Step::client_initialize, kFail);
  expect_one_failed_attempt();
  EXPECT_THAT(bench.physical().initialized(), IsEmpty());
  EXPECT_EQ(bench.other().initialized().size(), 1u);
}

TEST_P(VirtualStreaming, AnEndpointChangedDuringAFailedActivationIsTheOneOfTheNextAttempt) {
  wait_for_application();
  bench.machine.script().before(Step::endpoint_activate_client, 1,
                                [&] { bench.stream->SetEndpointId(bench.other_id); });
  bench.machine.script().fail(Step::endpoint_activate_client, kFail);
  expect_one_failed_attempt();
  EXPECT_EQ(bench.other().initialized().size(), 1u);
}

TEST_P(VirtualStreaming, TellsTheMuteWindowOnceThePhysicalEndpointIsOpen) {
  wait_for_application();
  bench.open_application();
  bench.machine.script().before(Step::post_message, 1,
                                [&] { EXPECT_EQ(bench.machine.script().count(Step::client_start), 1u); });
  bench.machine.run_for(1);
  EXPECT_THAT(bench.recording_messages(), ElementsAre(1));
  EXPECT_FALSE(bench.log.has(bench.text(" eWaitVirtualDriver FindWindow error!!\n")));
}

TEST_P(VirtualStreaming, WithoutAMuteWindowOnlyTheMessageIsLost) {
  bench.stream->SetMuteWindow(WindowHandle::none);
  bench.start_streaming();
  EXPECT_EQ(bench.log.count(bench.text(" eWaitVirtualDriver FindWindow error!!\n")), 1u);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
  bench.stream->Stop();
  EXPECT_THAT(bench.machine.desktop().messages(), IsEmpty());
}

TEST_P(VirtualStreaming, TheMuteStateIsTakenOverAfterTheMessageAndBeforeStreaming) {
  wait_for_application();
  bench.physical().volume().set_mute(true);
  bench.machine.run_for(1);
  bench.log.clear();
  bench.open_application();
  bench.machine.script().before(Step::volume_mute, 1, [&] { EXPECT_THAT(bench.recording_messages(), ElementsAre(1)); });
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(bench.text(" saved mute state: TRUE\n")), 1u);
  EXPECT_EQ(bench.virtual_endpoint().volume().muted(), capture());
}

// ---- Level of the physical microphone

class PhysicalLevel : public ::testing::Test {
 protected:
  CCaptureInterface& capture() { return static_cast<CCaptureInterface&>(*bench.stream); }
  float level() { return bench.physical().volume().level(); }

  StreamBench bench{DataFlow::capture};
};

TEST_F(PhysicalLevel, IsNineTenthsWithoutAChain) {
  bench.start_streaming();
  EXPECT_EQ(level(), 0.9f);
}

TEST_F(PhysicalLevel, IsNineTenthsUnderKeyCancel) {
  capture().SetGenAndFunction(8, 0, 2, 1);
  bench.start_streaming();
  EXPECT_EQ(level(), 0.9f);
}

TEST_F(PhysicalLevel, IsNineTenthsUnderBeamForming) {
  capture().SetGenAndFunction(8, 0, 3, 2);
  bench.start_streaming();
  EXPECT_EQ(level(), 0.9f);
}

TEST_F(PhysicalLevel, IsFullUnderTheSpeechEnhancement) {
  capture().SetGenAndFunction(10, 0, 5, 8);
  float level_at_opening = 0.0f;
  bench.machine.script().before(Step::client_initialize, 1, [&] { level_at_opening = level(); });
  bench.start_streaming();
  EXPECT_EQ(level_at_opening, 1.0f);
}

TEST_F(PhysicalLevel, IsPutBackWhenTheStreamEnds) {
  bench.physical().volume().set_level(0.25f);
  bench.start_streaming();
  bench.stream->Stop();
  EXPECT_EQ(level(), 0.25f);
}

TEST_F(PhysicalLevel, IsPutBackToZeroToo) {
  bench.physical().volume().set_level(0.0f);
  bench.start_streaming();
  EXPECT_EQ(level(), 0.9f);
  bench.stream->Stop();
  EXPECT_EQ(level(), 0.0f);
}

TEST_F(PhysicalLevel, IsPutBackWhenTheOpeningFails) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(Step::client_initialize, kFail);
  bench.open_application();
  bench.machine.run_for(50);
  EXPECT_EQ(level(), 0.5f);
  EXPECT_EQ(bench.machine.script().count(Step::volume_set_level), 2u);
}

TEST_F(PhysicalLevel, ThatCannotBeReadFailsTheOpening) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(Step::volume_level, kFail);
  bench.open_application();
  bench.machine.run_for(50);
  EXPECT_EQ(bench.log.count("[cap] CPhysicalDevice::GetVolumeLevel failed.\n"), 1u);
  EXPECT_EQ(bench.machine.script().count(Step::volume_set_level), 0u);
  EXPECT_EQ(bench.machine.leaks().audio_clients, 0u);
  bench.machine.run_for(60);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
}

TEST_F(PhysicalLevel, ThatCannotBeSetFailsTheOpening) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.script().fail(Step::volume_set_level, kFail);
  bench.open_application();
  bench.machine.run_for(50);
  EXPECT_EQ(bench.log.count("[cap] CPhysicalDevice::SetVolumeLevel failed.\n"), 1u);
  EXPECT_EQ(bench.machine.script().count(Step::client_initialize), 0u);
  EXPECT_EQ(bench.machine.script().count(Step::volume_set_level), 1u);
  bench.machine.run_for(60);
  EXPECT_EQ(bench.stream->State(), StreamState::ePhysicalStreaming);
}

TEST(PhysicalLevelOfRender, IsNeitherReadNorSet) {
  StreamBench bench(DataFlow::render);
  bench.start();
  const std::uint64_t reads = bench.machine.script().count(Step::volume_level);
  bench.open_application();
  bench.machine.run_for(50);
  bench.stream->Stop();
  EXPECT_EQ(bench.machine.script().count(Step::volume_level), reads);
  EXPECT_EQ(bench.machine.script().count(Step::volume_set_level), 0u);
}

}  // namespace
}  // namespace sonivo::test
