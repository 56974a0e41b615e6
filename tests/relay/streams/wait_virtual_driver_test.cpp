// The first state: session, virtual device, volume of the virtual endpoint.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

using sim::Step;
using ::testing::ElementsAre;

class WaitVirtualDriver : public EachDirection {};
INSTANTIATE_TEST_SUITE_P(Of, WaitVirtualDriver, both_directions(), direction_name);

TEST_P(WaitVirtualDriver, OutsideTheConsoleSessionStaysAtOneSecondAndNeverOpensTheDevice) {
  bench.machine.session().set_console_session(2);
  bench.start();
  bench.machine.run_for(3500);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0, 1000, 2000, 3000));
  EXPECT_EQ(bench.log.count(bench.text(" Not active session\n")), 4u);
  EXPECT_EQ(bench.machine.script().count(Step::bus_interfaces), 0u);
  EXPECT_EQ(bench.machine.driver().handles().opened, 0u);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
}

TEST_P(WaitVirtualDriver, GoesOnWithinASecondOnceTheSessionIsOnTheConsole) {
  bench.machine.session().set_console_session(2);
  bench.start();
  bench.machine.run_for(500);
  bench.machine.session().set_console_session(1);
  bench.machine.run_for(499);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
  bench.machine.run_for(2);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
}

TEST_P(WaitVirtualDriver, AnUnknownSessionIsAskedForAgainEverySecond) {
  bench.machine.script().fail_always(Step::process_session, 1);
  bench.start();
  bench.machine.run_for(2500);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0, 1000, 2000));
  EXPECT_EQ(bench.log.count(bench.text(" ProcessIdToSessionId err.\n")), 3u);
  EXPECT_FALSE(bench.log.has(bench.text(" Not active session\n")));
  EXPECT_EQ(bench.machine.script().count(Step::bus_interfaces), 0u);
}

TEST_P(WaitVirtualDriver, AMissingDeviceIsLookedForEverySecondForEver) {
  bench.machine.driver().surprise_remove(bench.pin);
  bench.start();
  bench.machine.run_for(2500);
  EXPECT_THAT(bench.times_of(Step::bus_interfaces), ElementsAre(0, 1000, 2000));
  EXPECT_EQ(bench.machine.script().count(Step::device_probe), 0u);
  EXPECT_EQ(bench.machine.script().count(Step::device_open), 0u);
  bench.machine.driver().return_device(bench.pin);
  bench.machine.run_for(501);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
}

TEST_P(WaitVirtualDriver, ADeviceThatDoesNotOpenIsTriedEverySecondAndGetsNoNotice) {
  bench.machine.script().fail_always(Step::device_open, error::kAccessDenied);
  bench.start();
  bench.machine.run_for(2500);
  EXPECT_THAT(bench.times_of(Step::device_open), ElementsAre(0, 1000, 2000));
  EXPECT_EQ(bench.machine.script().count(Step::device_notify_removal), 0u);
  EXPECT_EQ(bench.machine.driver().handles().open(), 0u);
}

TEST_P(WaitVirtualDriver, TheDeviceIsProbedOpenedAndWatchedInThisOrder) {
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.sequence_of({Step::process_session, Step::bus_interfaces, Step::device_probe, Step::device_open,
                               Step::device_notify_removal, Step::device_wait_stream}),
            names({Step::process_session, Step::bus_interfaces, Step::device_probe, Step::device_open,
                   Step::device_notify_removal, Step::device_wait_stream}));
  EXPECT_EQ(bench.machine.driver().handles().opened, 2u);
  EXPECT_EQ(bench.machine.driver().handles().open(), 1u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 1u);
}

TEST_P(WaitVirtualDriver, TheDeviceIsProbedBeforeTheHandleHeldSoFarIsClosed) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.driver().surprise_remove(bench.pin);  // ends the wait for a stream
  bench.machine.driver().return_device(bench.pin);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.sequence_of({Step::device_probe, Step::device_open, Step::device_close}),
            names({Step::device_probe, Step::device_open,  //
                   Step::device_probe, Step::device_close, Step::device_open}));
}

TEST_P(WaitVirtualDriver, TheOutcomeOfTheProbeMeansNothing) {
  bench.machine.script().fail(Step::device_probe, error::kSharingViolation);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
}

TEST_P(WaitVirtualDriver, ADeviceThatGetsNoRemovalNoticeIsOpenedAnewAfterASecond) {
  bench.machine.script().fail(Step::device_notify_removal, 1);
  bench.start();
  bench.machine.run_for(999);
  EXPECT_EQ(bench.log.count("[" + bench.prefix + "] RegisterDeviceNotification failed.\n"), 1u);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
  bench.machine.run_for(2);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
  EXPECT_THAT(bench.times_of(Step::device_open), ElementsAre(0, 1000));
  EXPECT_EQ(bench.machine.driver().handles().open(), 1u) << "the handle of the first try is closed";
}

TEST_P(WaitVirtualDriver, ADeviceThatHasGoneIsLetGoTogetherWithItsNotice) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.driver().surprise_remove(bench.pin);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualDriver);
  EXPECT_EQ(bench.machine.driver().handles().open(), 0u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
}

// ---- Volume of the virtual endpoint

TEST_P(WaitVirtualDriver, HooksTheVirtualVolumeAfterTheDeviceAndBeforeTheWaitForAStream) {
  bench.start();
  bench.machine.run_for(1);
  const auto steps =
      bench.sequence_of({Step::device_notify_removal, Step::volume_register, Step::device_wait_stream, Step::sleep});
  // The first registration is that of the physical endpoint, made when the stream got its id.
  EXPECT_EQ(steps, names({Step::volume_register, Step::device_notify_removal, Step::volume_register,
                          Step::device_wait_stream}));
  EXPECT_EQ(bench.virtual_endpoint().volume().callbacks().size(), 1u);
}

TEST_P(WaitVirtualDriver, TheOldHookIsTakenOffBeforeTheNewOneIsMade) {
  bench.start();
  bench.machine.run_for(1);
  bench.machine.driver().surprise_remove(bench.pin);
  bench.machine.driver().return_device(bench.pin);
  bench.machine.run_for(1);
  EXPECT_EQ(bench.sequence_of({Step::volume_unregister, Step::volume_register, Step::device_wait_stream}),
            names({Step::volume_register, Step::volume_register, Step::device_wait_stream, Step::volume_unregister,
                   Step::volume_register, Step::device_wait_stream}));
  EXPECT_EQ(bench.virtual_endpoint().volume().callbacks().size(), 1u);
}

TEST_P(WaitVirtualDriver, WithoutAVirtualEndpointOnlyTheMuteSynchronisationIsLost) {
  bench.machine.endpoints().remove(bench.virtual_id);
  bench.start();
  bench.machine.run_for(1);
  EXPECT_EQ(bench.log.count(bench.text(" GetVirtualEndpointVolume failed.\n")), 1u);
  EXPECT_EQ(bench.stream->State(), StreamState::eWaitVirtualStream);
}

TEST_P(WaitVirtualDriver, AFailedListOfEndpointsEndsTheThreadForGood) {
  bench.stream->SetEndpointId(bench.physical_id);
  bench.machine.script().fail(Step::endpoints_list, kFail);
  bench.stream->Start();
  bench.machine.run_for(5000);
  EXPECT_EQ(bench.log.count(bench.text(" GetVirtualEndpointVolume failed.\n")), 1u);
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0));
  EXPECT_EQ(bench.machine.script().count(Step::device_wait_stream), 0u);
}

TEST_P(WaitVirtualDriver, AVolumeThatCannotBeHookedEndsTheThreadForGood) {
  bench.stream->SetEndpointId(bench.physical_id);
  bench.machine.script().fail(Step::volume_register, kFail);
  bench.stream->Start();
  bench.machine.run_for(5000);
  EXPECT_FALSE(bench.log.has(bench.text(" GetVirtualEndpointVolume failed.\n")));
  EXPECT_EQ(bench.machine.scheduler().live_threads(), 0u);
  EXPECT_THAT(bench.times_of(Step::process_session), ElementsAre(0));
}

TEST_P(WaitVirtualDriver, ADeadThreadIsStillStoppedInOrder) {
  bench.stream->SetEndpointId(bench.physical_id);
  bench.machine.script().fail(Step::endpoints_list, kFail);
  bench.stream->Start();
  bench.machine.run_for(1);
  bench.stream->Stop();
  EXPECT_EQ(bench.machine.driver().handles().open(), 0u);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
}

TEST(WaitVirtualDriverOfCapture, SleepsTenMillisecondsWhileAPhysicalMuteIsBeingApplied) {
  StreamBench bench(DataFlow::capture);
  bench.start();
  bench.machine.run_for(1);
  const std::uint64_t start = bench.now_ms();
  // While the notification is writing the virtual mute, the device goes and comes back, so that the stream hooks anew.
  bench.machine.script().before(Step::volume_set_mute, 1, [&] {
    bench.machine.driver().surprise_remove(sim::PinId::mic);
    bench.machine.driver().return_device(sim::PinId::mic);
    bench.machine.scheduler().pass(25 * sim::kMillisecond);
  });
  bench.physical().volume().set_mute(true);
  bench.machine.run_for(50);
  EXPECT_THAT(bench.times_of(Step::sleep), ElementsAre(start)) << "the exchange itself ends the second round";
  EXPECT_THAT(bench.times_of(Step::volume_unregister), ElementsAre(start + 10));
  EXPECT_TRUE(bench.virtual_endpoint().volume().muted());
}

TEST_P(WaitVirtualDriver, APhysicalMuteThatArrivesDuringTheHookingIsAppliedAtItsEndByCaptureOnly) {
  bench.stream->SetEndpointId(bench.physical_id);
  bench.machine.script().before(Step::volume_register, 1, [&] {
    bench.physical().volume().set_mute(true);
    bench.machine.scheduler().pass(sim::kMillisecond);
  });
  bench.stream->Start();
  bench.machine.run_for(5);
  EXPECT_EQ(bench.virtual_endpoint().volume().muted(), capture());
}

}  // namespace
}  // namespace sonivo::test
