#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "host/stopping.h"
#include "main_thread_bench.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace c = control;

constexpr std::uint32_t kEventCodes[] = {c::NSV_SERVICE_EVENT_CANCEL, c::NSV_SERVICE_EVENT_NOTIFY};

TEST(MainThreadReconnect, TriesEveryTwoSecondsUntilTheDriverIsThere) {
  MainThreadBench bench;
  bench.driver().set_present(false);
  bench.start_thread(1900);
  EXPECT_EQ(bench.machine.script().count(sim::Step::bus_interfaces), 0u);
  bench.run_for(200);
  EXPECT_EQ(bench.machine.script().count(sim::Step::bus_interfaces), 1u);
  bench.run_for(2000);
  EXPECT_EQ(bench.machine.script().count(sim::Step::bus_interfaces), 2u);
  EXPECT_EQ(bench.log.count("[MainThread] m_hDriver.InitDriverInfo.\n"), 2u);
  EXPECT_GE(bench.log.count("[MainThread] NorvellSonivoDriver Do nothing.\n"), 20u);
  bench.driver().set_present(true);
  bench.run_for(2000);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
}

TEST(MainThreadReconnect, ExitAndServiceLockCutTheWaitShort) {
  MainThreadBench bench;
  bench.driver().set_present(false);
  bench.start_thread(300);
  bench.host->m_bThreadExit = 1;
  bench.run_for(200);
  EXPECT_EQ(bench.status, 0u);

  MainThreadBench locked;
  locked.driver().set_present(false);
  locked.start_thread(300);
  locked.host->m_bSonivoServiceLock = 1;
  locked.machine.script().before(sim::Step::process_session, 1, [&] { locked.host->m_bSonivoServiceLock = 0; });
  locked.run_for(200);
  EXPECT_EQ(locked.machine.script().count(sim::Step::bus_interfaces), 1u);
}

TEST(MainThreadReconnect, AnInactiveSessionKeepsPollingWithoutOpening) {
  MainThreadBench bench;
  bench.machine.session().set_console_session(2);
  bench.start_thread(10'000);
  EXPECT_EQ(bench.driver().opened_handles(), 0u);
  bench.machine.session().set_console_session(1);
  bench.run_for(2100);
  EXPECT_EQ(bench.driver().opened_handles(), 2u);
}

TEST(MainThreadReconnect, AnUnknownSessionKeepsTheDriversLock) {
  MainThreadBench bench;
  EXPECT_TRUE(bench.host->m_csDriver.try_lock());
  bench.host->m_csDriver.unlock();
  bench.machine.script().fail(sim::Step::process_session, 0);
  bench.start_thread(2100);
  EXPECT_EQ(bench.log.count("[MainThread] ProcessIdToSessionId err.\n"), 1u);
  EXPECT_FALSE(bench.host->m_csDriver.try_lock());
  bench.run_for(4000);
  EXPECT_EQ(bench.driver().opened_handles(), 2u);   // the thread itself enters again, and opens
  EXPECT_FALSE(bench.host->m_csDriver.try_lock());  // and leaves once less than it entered
}

TEST(MainThreadReconnect, HoldsTheDriversLockWhileItOpens) {
  MainThreadBench bench;
  std::vector<bool> free;
  for (const std::uint64_t nth : {1u, 2u}) {
    bench.machine.script().before(sim::Step::control_open, nth, [&] { free.push_back(bench.driver_lock_is_free()); });
  }
  bench.start_thread(2100);
  EXPECT_THAT(free, ElementsAre(false, false));
  EXPECT_TRUE(bench.driver_lock_is_free());
}

TEST(MainThreadReconnect, ADriverThatIsOpenedMeanwhileIsNotOpenedAgain) {
  MainThreadBench bench;
  bench.machine.script().before(sim::Step::process_session, 1, [&] { bench.open(); });
  bench.start_thread(2100);
  EXPECT_EQ(bench.driver().opened_handles(), 2u);
  EXPECT_FALSE(bench.log.has("[MainThread] m_hDriver.InitDriverInfo.\n"));
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
}

TEST(MainThreadEntry, ClearsItsFlags) {
  MainThreadBench bench;
  bench.open();
  bench.host->m_bSonivoServiceLock = 1;
  bench.host->m_dwMonitorStatus = 2;
  bench.start_thread();
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 0u);
  EXPECT_EQ(bench.host->m_dwMonitorStatus, 0u);
}

TEST(MainThreadSynchronise, CancelsFirstAndAsksInOrder) {
  MainThreadBench bench(kBeamForming);
  bench.open();
  bench.start_thread();
  EXPECT_THAT(bench.all_codes(),
              ElementsAre(c::NSV_SERVICE_EVENT_CANCEL, c::GetSonivoDrvGeneration, c::GetFunction, c::GetGenerationMic,
                          c::GetFunctionMic, c::GetCaptureEndpointId, c::GetRenderEndpointId, c::GetKeyboardCancelMTG,
                          c::GetBeamformingMTG, c::NSV_GET_AUTO_MUTE_MTG, c::NSV_SERVICE_EVENT_NOTIFY));
  EXPECT_TRUE(bench.log.has("[MainThread] First NSV_SERVICE_EVENT_CANCEL\n"));
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_EQ(bench.host->m_bMicDeviceDirty, 1u);
}

TEST(MainThreadSynchronise, AsksForTheOtherChains) {
  MainThreadBench key_cancel(kKeyCancel);
  key_cancel.open();
  key_cancel.start_thread();
  EXPECT_THAT(
      key_cancel.driver().codes(),
      ElementsAre(c::GetSonivoDrvGeneration, c::GetFunction, c::GetGenerationMic, c::GetFunctionMic,
                  c::GetCaptureEndpointId, c::GetRenderEndpointId, c::GetKeyboardCancelMTG, c::NSV_GET_AUTO_MUTE_MTG));
  EXPECT_EQ(key_cancel.host->m_bMicDeviceDirty, 0u);

  MainThreadBench speech(kAISpeech);
  speech.open();
  speech.start_thread();
  EXPECT_THAT(speech.driver().codes(),
              ElementsAre(c::GetSonivoDrvGeneration, c::GetFunction, c::GetGenerationMic, c::GetFunctionMic,
                          c::GetCaptureEndpointId, c::GetRenderEndpointId, c::GetAispeechenhanceMTG,
                          c::GetAispeechenhanceSetAiModelMTG, c::NSV_GET_AUTO_MUTE_MTG));
  EXPECT_EQ(speech.host->m_bMicDeviceDirty, 1u);
}

TEST(MainThreadSynchronise, NothingIsAskedOfGenerationNine) {
  MainThreadBench bench({9, 2, 5, 8});
  bench.open();
  bench.start_thread();
  EXPECT_THAT(bench.driver().codes(), ElementsAre(c::GetSonivoDrvGeneration, c::GetCaptureEndpointId,
                                                  c::GetRenderEndpointId, c::NSV_GET_AUTO_MUTE_MTG));
}

TEST(MainThreadSynchronise, TheFunctionsOfAMicrophoneThatIsKnownAreAskedOfGenerationNineToo) {
  MainThreadBench bench({9, 2, 5, 8});
  bench.open();
  bench.host->m_dwGenerationMic = 5;
  bench.start_thread();
  EXPECT_THAT(bench.driver().codes(), testing::Contains(c::GetFunctionMic));
  EXPECT_EQ(bench.host->m_FunctionMic, 8u);
  EXPECT_EQ(bench.host->m_dwGenerationMic, 5u);
}

TEST(MainThreadSynchronise, FailingGettersLeaveZero) {
  MainThreadBench bench(kBeamForming);
  bench.open();
  bench.driver().fail(c::GetSonivoDrvGeneration, error::kAccessDenied);
  bench.host->m_dwGeneration = 8;
  bench.start_thread();
  EXPECT_EQ(bench.host->m_dwGeneration, 0u);
}

TEST(MainThreadSynchronise, FailingMicrophoneGettersLeaveZeroToo) {
  MainThreadBench bench(kBeamForming);
  bench.open();
  bench.driver().fail(c::GetFunction, error::kAccessDenied);
  bench.driver().fail(c::GetFunctionMic, error::kAccessDenied);
  bench.host->m_Function = 2;
  bench.host->m_FunctionMic = 2;
  bench.start_thread();
  EXPECT_EQ(bench.host->m_Function, 0u);
  EXPECT_EQ(bench.host->m_FunctionMic, 0u);
  EXPECT_EQ(bench.host->m_dwGenerationMic, 3u);

  MainThreadBench generation(kBeamForming);
  generation.open();
  generation.driver().fail(c::GetGenerationMic, error::kAccessDenied);
  generation.host->m_dwGenerationMic = 3;
  generation.start_thread();
  EXPECT_EQ(generation.host->m_dwGenerationMic, 0u);  // and the functions aren't asked for then
  const auto codes = generation.driver().codes();
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetFunctionMic), 0);
}

TEST(MainThreadSynchronise, AnyOtherAutoMuteThanOneUnmutes) {
  MainThreadBench bench;
  bench.open();
  bench.host->m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kMicArray);
  bench.machine.endpoint(sim::kMicArray).volume().set_mute(true);
  bench.host->m_dwAutoMute = 1;
  bench.driver().set_number(c::NSV_GET_AUTO_MUTE_MTG, 2);
  bench.start_thread();
  EXPECT_EQ(bench.host->m_dwAutoMute, 2u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 1u);
  EXPECT_FALSE(bench.machine.endpoint(sim::kMicArray).volume().muted());
}

TEST(MainThreadSynchronise, AMissingVoiceModelIsTakenBackInBothLayers) {
  MainThreadBench bench(kAISpeech);
  bench.open();
  bench.driver().set_number(c::GetAispeechenhanceSetAiModelMTG, 1);
  bench.driver().set_number(c::GetAispeechenhanceSetAiModel_UI_MTG, 1);
  bench.host->m_AudioControl.SetAISpeechEnhancePmodel((bench.folder.path() / "missing.bin").c_str());
  bench.start_thread();
  EXPECT_TRUE(bench.log.has("[MainThread] UpdateAISpeechEnhanceSetAiModelState ERROR\n"));
  EXPECT_EQ(bench.driver().number(c::GetAispeechenhanceSetAiModelMTG), 0u);
  EXPECT_EQ(bench.driver().number(c::GetAispeechenhanceSetAiModel_UI_MTG), 0u);
}

TEST(MainThreadSynchronise, AutoMuteIsTakenUpWhenItDiffers) {
  MainThreadBench bench;
  bench.open();
  bench.driver().set_number(c::NSV_GET_AUTO_MUTE_MTG, 1);
  bench.start_thread();
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 0u);

  MainThreadBench off;
  off.open();
  off.host->m_dwAutoMute = 1;
  off.start_thread();
  EXPECT_EQ(off.host->m_dwAutoMute, 0u);
  EXPECT_EQ(off.machine.script().count(sim::Step::window_hide), 1u);

  MainThreadBench failing;
  failing.open();
  failing.host->m_dwAutoMute = 1;
  failing.driver().fail(c::NSV_GET_AUTO_MUTE_MTG, error::kAccessDenied);
  failing.start_thread();
  EXPECT_EQ(failing.host->m_dwAutoMute, 1u);
}

TEST(MainThreadSynchronise, EndpointIdsAreTakenUpWithoutForce) {
  MainThreadBench bench;
  bench.open();
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kHeadsetMic));
  bench.start_thread();
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST(MainThreadEvents, EndpointCommandsMoveTheirStream) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kHeadsetMic));
  bench.driver().set_text(c::GetRenderEndpointId, to_utf16(sim::kHeadphones));
  bench.send(c::NSVDRV_CMD_DEV_MIC);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
  bench.send(c::NSVDRV_CMD_DEV_SPK);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kHeadphones);
  bench.driver().set_text(c::GetCaptureEndpointId, u"");
  bench.send(c::NSVDRV_CMD_DEV_MIC);  // an empty one follows the default
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
  bench.driver().fail(c::GetRenderEndpointId, error::kAccessDenied);
  bench.send(c::NSVDRV_CMD_DEV_SPK);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST(MainThreadEvents, AutoMuteCommands) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 0u);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_EQ(bench.host->m_dwAutoMute, 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 1u);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);  // off already: nothing
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 1u);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  bench.host->m_bAutoMuteOff = 1;  // the window hides by its own timer
  bench.machine.endpoint(sim::kMicArray).volume().set_mute(true);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_EQ(bench.host->m_dwAutoMute, 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 1u);
  EXPECT_FALSE(bench.machine.endpoint(sim::kMicArray).volume().muted());
}

TEST(MainThreadEvents, AutoMuteOffUnmutesTheMicrophone) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.machine.endpoint(sim::kMicArray).volume().set_mute(true);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_FALSE(bench.machine.endpoint(sim::kMicArray).volume().muted());
}

TEST(MainThreadEvents, AutoMuteCommandsTakeEachOtherValueForNeither) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.host->m_dwAutoMute = 2;
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  bench.host->m_dwAutoMute = 2;
  bench.machine.endpoint(sim::kMicArray).volume().set_mute(true);
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_EQ(bench.host->m_dwAutoMute, 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 1u);
  EXPECT_FALSE(bench.machine.endpoint(sim::kMicArray).volume().muted());
}

TEST(MainThreadEvents, MonitorWakeNudgesThePointerOnlyWhileTheDisplayIsOff) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.send(c::kMonitorWake);
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_require_display), 1u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::pointer_move), 1u);
  for (const std::uint32_t state : {kDisplayOn, kDisplayDimmed}) {
    bench.host->m_dwMonitorStatus = state;
    bench.send(c::kMonitorWake);
  }
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_require_display), 3u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::pointer_move), 1u);
}

TEST(MainThreadEvents, PlayerCommandsStartAndEndThePlayer) {
  MainThreadBench bench;
  bench.open();
  bench.machine.processes().add({.id = 42, .session = 1, .name = "NorvellPlayer.exe"});
  bench.start_thread();
  bench.send(c::kPlayerIsOn);
  EXPECT_EQ(bench.machine.processes().started().size(), 1u);
  bench.run_for(200);
  bench.send(c::kPlayerIsOff);
  ASSERT_EQ(bench.machine.processes().terminated().size(), 1u);
  EXPECT_EQ(bench.machine.processes().terminated()[0].id, 42u);
}

TEST(MainThreadEvents, ExitClosesTheDriverAndPausesForItToUnload) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.send(c::NSVPLAY_CMD_EXIT);
  EXPECT_TRUE(bench.log.has("[MainThread] NSVPLAY_CMD_EXIT\n"));
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  EXPECT_EQ(bench.host->m_bDriverReady, 0u);
  bench.run_for(6900);  // 5 s, and the ten rounds of a reconnection
  EXPECT_EQ(bench.driver().opened_handles(), 2u);
  bench.run_for(200);
  EXPECT_EQ(bench.driver().opened_handles(), 4u);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
}

TEST(MainThreadEvents, UnknownCommandsAreSaidAndNothingElse) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  for (const std::uint32_t command : {0u, 4u, 11u, 17u, 98u, 100u}) {
    bench.log.clear();
    bench.driver().forget_requests();
    bench.send(command);
    EXPECT_TRUE(bench.log.has("[MainThread] DEFAULT Command = (" + std::to_string(command) + ").\n"));
    EXPECT_TRUE(bench.log.has("[MainThread] DEFAULT Do nothing.\n"));
    EXPECT_THAT(bench.driver().codes(), IsEmpty());
  }
}

TEST(MainThreadEvents, NothingIsNoUnknownCommand) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.log.clear();
  bench.send(c::kNothing);
  EXPECT_FALSE(bench.log.has("[MainThread] DEFAULT Do nothing.\n"));
  EXPECT_EQ(bench.all_codes().back(), c::NSV_SERVICE_EVENT_NOTIFY);
}

TEST(MainThreadEvents, AFailingRequestIsCommandZeroAndComesAgainAtOnce) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.driver().forget_requests();
  bench.log.clear();
  bench.host->m_DriverAccess.SetEventIoControl_Cancel();
  bench.run_for(1);
  EXPECT_TRUE(bench.log.has("[SetEventIoControl] Notify error: unexpected DeviceIoControl error 995\n"));
  EXPECT_TRUE(bench.log.has("[MainThread] DEFAULT Command = (0).\n"));
  EXPECT_THAT(bench.all_codes(), testing::ElementsAreArray(kEventCodes));
}

TEST(MainThreadRounds, AHeldDriverMakesRoundsDoNothing) {
  MainThreadBench bench(kPlain, sim::Schedule::free);
  bench.open();
  bench.start_thread();
  const std::size_t asked = bench.all_codes().size();
  bench.host->m_bSonivoServiceLock = 1;
  bench.driver().send_event(c::kNothing);
  while (bench.machine.script().count(sim::Step::sleep) < 1000) bench.machine.scheduler().pass(0);
  EXPECT_EQ(bench.all_codes().size(), asked);
  bench.host->m_bThreadExit = 1;
  bench.thread->join();
  EXPECT_EQ(bench.status, 0u);
}

TEST(MainThreadRounds, StoppingReleasesItsRequestAtOnce) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  StopDriverThreads(*bench.host);
  bench.run_for(1);
  EXPECT_EQ(bench.status, 0u);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  StopDriverThreads(*bench.host);  // nothing left to stop
  EXPECT_EQ(bench.driver().open_handles(), 0u);
}

TEST(MainThreadRounds, ADriverThatIsRemovedIsOpenedAgainWhenItReturns) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.driver().tell(DeviceAction::remove_pending);
  bench.run_for(100);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  bench.run_for(2100);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_EQ(bench.driver().action_notices(), 1u);
}

}  // namespace
}  // namespace sonivo::test
