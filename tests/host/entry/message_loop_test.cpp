#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "host/host_windows.h"
#include "host_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace c = control;

constexpr const char* kModeThreads[] = {"MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                        "ChangeRegistryThread_Quit"};

std::size_t count_of(const std::vector<std::string>& names, const std::string& name) {
  return static_cast<std::size_t>(std::count(names.begin(), names.end(), name));
}

TEST(MessageLoop, ALockIsReportedUntilTheRebootAndTheEndOfASessionIsNot) {
  HostBench bench;
  bench.start(2500);
  const auto pause = [&] {
    const std::string report = bench.driver().report();
    const std::string name = "\"pause\":\"";
    const std::size_t at = report.find(name);
    return at != report.npos ? report.substr(at + name.size(), report.find('"', at + name.size()) - at - name.size())
                             : "";
  };
  EXPECT_EQ(pause(), "none");
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_EQ(pause(), "locked");
  bench.machine.session().unlock();
  bench.run_for(3000);
  EXPECT_EQ(pause(), "none");
  bench.end_session();
  EXPECT_EQ(pause(), "none");
}

TEST(MessageLoop, TheNextMessageAfterALockRebootsTheThreads) {
  HostBench bench(kBeamForming);
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  EXPECT_THAT(bench.threads(), IsEmpty());

  bench.machine.session().unlock();
  bench.run_for(3000);
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 0u);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_THAT(bench.threads(), testing::ElementsAreArray(kModeThreads));
}

TEST(MessageLoop, ARebootGoesOnWithoutModeThreadsWhereThereAreNone) {
  HostBench bench(kKeyCancel);
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.post_any();
  bench.run_for(3000);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  EXPECT_EQ(bench.host->m_hEvent.Get(0), nullptr);
}

TEST(MessageLoop, APostedPowerBroadcastIsSwallowedWhileARebootIsPending) {
  HostBench bench;
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  const std::uint64_t dispatched = bench.machine.script().count(sim::Step::dispatch_message);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(1000);
  EXPECT_EQ(bench.machine.script().count(sim::Step::dispatch_message), dispatched);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);  // its case would have cleared this

  bench.post_any();
  bench.run_for(3000);
  EXPECT_EQ(bench.machine.script().count(sim::Step::dispatch_message), dispatched + 1);
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
}

TEST(MessageLoop, APowerBroadcastIsDispatchedWhileNoRebootIsPending) {
  HostBench bench;
  bench.start();
  bench.host->m_bSonivoServiceLock = 1;
  bench.driver().send_event(c::kNothing);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(10);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 0u);
}

// MainThread waits for the player's shell, which never ends.
TEST(MessageLoop, AThreadThatDoesNotStopIsAbandonedAfterSixSeconds) {
  HostBench bench;
  bench.machine.processes().set_run_time(std::nullopt);
  bench.start();
  bench.driver().send_event(c::kPlayerIsOn);
  bench.run_for(100);
  bench.machine.session().lock();
  bench.run_for(100);
  bench.post_any();
  bench.run_for(5900);
  EXPECT_FALSE(bench.log.has("[Main] hThread != WAIT_OBJECT_0.\n"));
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  bench.run_for(1000);
  EXPECT_TRUE(bench.log.has("[Main] hThread != WAIT_OBJECT_0.\n"));
  EXPECT_FALSE(bench.log.has("[Main] hThreadSub != WAIT_OBJECT_0.\n"));
  EXPECT_EQ(count_of(bench.threads(), "MainThread"), 2u);  // the abandoned one runs beside its successor
  for (const auto& process : bench.machine.processes().started()) bench.machine.processes().end(process.id);
  bench.run_for(100);
}

// SubThread hangs in a driver request.
TEST(MessageLoop, AnAbandonedSubThreadIsSaid) {
  HostBench bench(kKeyCancel);
  bench.start();
  bench.driver().set_delay(c::GetKeyboardCancelMTG, 9000);
  bench.run_for(250);
  bench.host->m_bThreadExit = 1;  // without closing the handles, which would end the request
  bench.host->m_bSonivoServiceLock = 1;
  bench.post_any();
  bench.run_for(6100);
  EXPECT_TRUE(bench.log.has("[Main] hThreadSub != WAIT_OBJECT_0.\n"));
  bench.run_for(9000);
}

TEST(MessageLoop, EventsOfAChangeThreadThatIsAbandonedStayOpenForIt) {
  HostBench bench(kBeamForming);
  bench.start();
  bench.machine.session().set_console_session(2);  // the mode threads don't leave while the session is inactive
  bench.run_for(100);
  const auto former = bench.host->m_hEvent.Get(EventPair::kWork);
  bench.machine.session().lock();
  bench.run_for(100);
  bench.post_any();
  bench.run_for(15'000);
  EXPECT_EQ(count_of(bench.threads(), "ChangeThread"), 2u);
  EXPECT_EQ(count_of(bench.threads(), "ChangeRegistryThread"), 2u);
  EXPECT_NE(bench.host->m_hEvent.Get(EventPair::kWork), former);
  EXPECT_NE(bench.host->m_hEvent.Get(EventPair::kWork), nullptr);
  bench.machine.session().set_console_session(1);
  bench.run_for(1000);
  EXPECT_EQ(count_of(bench.threads(), "ChangeThread"), 1u);
}

TEST(MessageLoop, RebootsCreateEachModeThreadBeforeItsEvents) {
  HostBench bench(kBeamForming);
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.script().start_trace();
  bench.post_any();
  bench.run_for(1);
  std::vector<std::string> creations;
  for (const std::string& step : bench.steps()) {
    if (step == "thread_start" || step == "event_create") creations.push_back(step);
  }
  creations.resize(std::min<std::size_t>(creations.size(), 11));
  EXPECT_THAT(creations, ElementsAre("thread_start", "thread_start",                    // MainThread, SubThread
                                     "thread_start", "event_create", "event_create",    // ChangeThread
                                     "thread_start", "event_create", "event_create",    // ChangeRegistryThread
                                     "thread_start", "event_create", "event_create"));  // ..._Quit
}

TEST(MessageLoop, AModeThreadThatRunsBeforeItsEventsEndsWithItsError) {
  HostBench bench(kBeamForming);
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  // The entry is held up between the new thread and its first event.
  bench.machine.script().before(sim::Step::event_create, 1, [&] { bench.machine.scheduler().pass(sim::kMillisecond); });
  bench.post_any();
  bench.run_for(3000);
  EXPECT_EQ(bench.log.count("ChangeThread ERROR.\n"), 1u);
  EXPECT_THAT(bench.threads(),
              ElementsAre("MainThread", "SubThread", "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
}

TEST(MessageLoop, TheRelayGoesOnThroughAReboot) {
  HostBench bench(kBeamForming);
  bench.start();
  const std::uint64_t started = bench.machine.script().count(sim::Step::endpoints_register);
  const std::uint64_t ended = bench.machine.script().count(sim::Step::endpoints_unregister);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.session().unlock();
  bench.run_for(3000);
  EXPECT_EQ(bench.machine.script().count(sim::Step::endpoints_register), started);
  EXPECT_EQ(bench.machine.script().count(sim::Step::endpoints_unregister), ended);
}

// ---- What stops the threads

struct Stopped {
  explicit Stopped(HostBench& its_bench) : bench(its_bench) {
    bench.start(1000);
    bench.driver().set_number(c::GetAutoExit, 1);
    bench.driver().set_number(c::NSV_GET_LAUNCHED_MTG, 1);
    bench.machine.desktop().windows().show_at(bench.host->m_hWnd, {0, 0, 10, 10}, Stacking::unchanged);
    bench.host->m_bFocusFrame = 1;
    bench.run_for(300);  // the painting, and a look at the headphones
    bench.driver().forget_requests();
  }
  bool stopped() const {
    return bench.host->m_bThreadExit == 1 && bench.host->m_bSonivoServiceLock == 1 && bench.host->m_bDriverReady == 0 &&
           bench.driver().open_handles() == 0;
  }
  bool hidden() const {
    return !bench.machine.desktop().windows().visible(bench.host->m_hWnd) && bench.host->m_bFocusFrame == 0;
  }
  bool left_meeting_mode() const { return bench.driver().number(c::NSV_GET_LAUNCHED_MTG) == 0; }
  HostBench& bench;
};

TEST(StopTriggers, Destroy) {
  HostBench bench;
  Stopped check(bench);
  bench.post(kWmClose);  // its default handling destroys the window
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_TRUE(check.stopped());
  EXPECT_FALSE(check.left_meeting_mode());
  EXPECT_EQ(bench.machine.desktop().painting().live_bitmaps(), 0u);
  EXPECT_EQ(bench.machine.session().registrations(), 0u);
}

TEST(StopTriggers, QueryEndSession) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.session().query_end();
  bench.run_for(1000);
  EXPECT_EQ(bench.machine.session().end_agreed(), true);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_TRUE(check.stopped());
  EXPECT_TRUE(check.hidden());
  EXPECT_TRUE(check.left_meeting_mode());
}

TEST(StopTriggers, EndSessionAloneChangesNothing) {
  HostBench bench;
  Stopped check(bench);
  bench.post(kWmEndSession, 1);
  bench.run_for(1000);
  EXPECT_FALSE(check.stopped());
  EXPECT_TRUE(bench.running());
}

TEST(StopTriggers, Lock) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_TRUE(check.stopped());
  EXPECT_FALSE(check.hidden());
  EXPECT_FALSE(check.left_meeting_mode());
}

TEST(StopTriggers, UnlockAloneChangesNothing) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.session().unlock();
  bench.run_for(1000);
  EXPECT_FALSE(check.stopped());
}

TEST(StopTriggers, SuspendMessage) {
  HostBench bench;
  Stopped check(bench);
  bench.post(kWmPowerBroadcast, kPowerSuspend);  // posted: no callback takes part
  bench.run_for(1000);
  EXPECT_TRUE(check.stopped());
  EXPECT_TRUE(check.hidden());
  EXPECT_TRUE(check.left_meeting_mode());
}

TEST(StopTriggers, SuspendCallback) {
  HostBench bench;
  Stopped check(bench);
  EXPECT_EQ(DeviceNotifyCallbackRoutine(*bench.host, kPowerSuspend), 0u);
  bench.run_for(1000);
  EXPECT_TRUE(check.stopped());
  EXPECT_TRUE(check.hidden());
  EXPECT_TRUE(check.left_meeting_mode());
}

TEST(StopTriggers, BothNotificationsOfOneSuspendDoNoHarm) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.power().suspend();
  bench.run_for(1000);
  EXPECT_TRUE(check.stopped());
  bench.machine.power().resume();
  bench.run_for(10'000);
  EXPECT_FALSE(check.stopped());
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
}

TEST(StopTriggers, ResumeMessageReadsTheMode) {
  HostBench bench;
  Stopped check(bench);
  bench.driver().set_number(c::GetAutoExit, 0);
  bench.driver().set_number(c::NSV_GET_ALL_SP_MTG, 3);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(100);
  EXPECT_EQ(bench.host->m_iMeetingMode, 2);
  EXPECT_EQ(bench.host->m_iMeetingModeCur, 2);
  EXPECT_EQ(bench.host->m_iMeetingModeTmp, 2);
  EXPECT_EQ(bench.host->m_RoomCorrection, 1u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 0u);
  EXPECT_FALSE(check.stopped());
}

TEST(StopTriggers, ResumeCallbackReadsTheRoomCorrectionAlone) {
  HostBench bench;
  Stopped check(bench);
  bench.driver().set_number(c::GetAutoExit, 0);
  bench.driver().set_number(c::NSV_GET_ALL_SP_MTG, 3);
  EXPECT_EQ(DeviceNotifyCallbackRoutine(*bench.host, kPowerResumeAutomatic), 0u);
  EXPECT_EQ(bench.host->m_iMeetingMode, 0);
  EXPECT_EQ(bench.host->m_RoomCorrection, 1u);
  for (const auto& message : bench.machine.desktop().messages()) {
    EXPECT_NE(message.message, WM_EVENT_MDN);  // the driver answered: no reboot is asked for
  }
}

TEST(StopTriggers, ResumeCallbackWithoutADriverPostsTheReboot) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.session().lock();
  bench.run_for(1000);
  ASSERT_TRUE(check.stopped());
  DeviceNotifyCallbackRoutine(*bench.host, kPowerResumeAutomatic);
  const auto messages = bench.machine.desktop().messages();
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.back().window, bench.host->m_hWnd.load());
  EXPECT_EQ(messages.back().message, WM_EVENT_MDN);
  bench.run_for(3000);
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
}

TEST(StopTriggers, BothResumesLeaveTheMeetingModeWhereThatIsAskedFor) {
  HostBench by_message;
  Stopped message(by_message);
  by_message.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  by_message.run_for(100);
  EXPECT_TRUE(message.left_meeting_mode());

  HostBench by_callback;
  Stopped callback(by_callback);
  DeviceNotifyCallbackRoutine(*by_callback.host, kPowerResumeAutomatic);
  EXPECT_TRUE(callback.left_meeting_mode());
}

TEST(StopTriggers, OtherPowerMessagesChangeNothing) {
  HostBench bench;
  Stopped check(bench);
  bench.post(kWmPowerBroadcast, 10);
  bench.post(kWmPowerBroadcast, kPowerSettingChange);  // without a record
  bench.run_for(1000);
  EXPECT_FALSE(check.stopped());
  EXPECT_FALSE(check.hidden());
  EXPECT_EQ(DeviceNotifyCallbackRoutine(*bench.host, 10), 0u);
  EXPECT_FALSE(check.stopped());
}

TEST(StopTriggers, AnswersOfThePanel) {
  HostBench bench;
  bench.start(1000);
  std::vector<std::int64_t> answers;
  bench.machine.script().before(sim::Step::dispatch_message, 1, [&] {  // on the windows' thread
    Windows& windows = bench.machine.desktop().windows();
    answers.push_back(windows.send_message(bench.host->m_hWnd, kWmPowerBroadcast, kPowerSuspend));
    answers.push_back(windows.send_message(bench.host->m_hWnd, kWmPowerBroadcast, kPowerResumeAutomatic));
    answers.push_back(windows.send_message(bench.host->m_hWnd, kWmPowerBroadcast, kPowerSettingChange));
    answers.push_back(windows.send_message(bench.host->m_hWnd, kWmQueryEndSession, 0));
  });
  bench.post_any();
  bench.run_for(10);
  EXPECT_THAT(answers, ElementsAre(1, 1, 1, 1));
}

TEST(StopTriggers, DisplayOnWithADriverHidesThePanelAndRebootsNothing) {
  HostBench bench;
  bench.machine.power().set_connected_standby(true);
  Stopped check(bench);
  bench.machine.power().set_display(kDisplayOn);
  bench.run_for(1000);
  EXPECT_TRUE(check.hidden());
  EXPECT_TRUE(check.left_meeting_mode());
  for (const auto& message : bench.machine.desktop().messages()) EXPECT_NE(message.message, WM_EVENT_MDN);
  EXPECT_FALSE(check.stopped());
}

TEST(StopTriggers, TheRebootMessageHasItsNumber) { EXPECT_EQ(WM_EVENT_MDN, 0x8064u); }

TEST(StopTriggers, TheDisplayIsNoted) {
  HostBench bench;
  bench.start(1000);
  EXPECT_EQ(bench.host->m_dwMonitorStatus, kDisplayOff);  // MainThread forgets what came before it
  for (const std::uint32_t state : {kDisplayOn, kDisplayDimmed, kDisplayOff}) {
    bench.machine.power().set_display(state);
    bench.run_for(10);
    EXPECT_EQ(bench.host->m_dwMonitorStatus, state);
  }
}

TEST(StopTriggers, DisplayOnAfterConnectedStandbyReboots) {
  HostBench bench;
  bench.machine.power().set_connected_standby(true);
  Stopped check(bench);
  bench.machine.session().lock();
  bench.run_for(1000);
  ASSERT_TRUE(check.stopped());
  bench.machine.power().set_display(kDisplayOn);
  bench.run_for(3000);
  EXPECT_FALSE(check.stopped());
  EXPECT_TRUE(check.hidden());
}

TEST(StopTriggers, DisplayOnWithoutConnectedStandbyDoesNot) {
  HostBench bench;
  Stopped check(bench);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.power().set_display(kDisplayOn);
  bench.run_for(3000);
  EXPECT_TRUE(check.stopped());
  EXPECT_FALSE(check.hidden());
}

TEST(AutoExit, ZeroLeavesTheMode) {
  HostBench bench;
  Stopped check(bench);
  bench.driver().set_number(c::GetAutoExit, 0);
  bench.post(kWmPowerBroadcast, kPowerSuspend);
  bench.run_for(1000);
  EXPECT_FALSE(check.left_meeting_mode());
  EXPECT_EQ(bench.driver().number(c::GetKeyboardCancelMTG), 1u);
}

TEST(AutoExit, OneSwitchesModeAndKeyCancelOff) {
  HostBench bench;
  Stopped check(bench);
  bench.post(kWmPowerBroadcast, kPowerSuspend);
  bench.run_for(1000);
  EXPECT_TRUE(check.left_meeting_mode());
  EXPECT_EQ(bench.driver().number(c::GetKeyboardCancelMTG), 0u);
  EXPECT_THAT(bench.driver().codes(), ElementsAre(c::GetAutoExit, c::NSV_SET_LAUNCHED_MTG, c::SetKeyboardCancelMTG));
}

TEST(AutoExit, GoesOnWhereTheDriverRefusesToLeaveTheMode) {
  HostBench bench;
  Stopped check(bench);
  bench.driver().fail(c::NSV_SET_LAUNCHED_MTG, error::kBusy);
  bench.post(kWmPowerBroadcast, kPowerSuspend);
  bench.run_for(1000);
  EXPECT_FALSE(check.left_meeting_mode());
  EXPECT_EQ(bench.driver().number(c::GetKeyboardCancelMTG), 0u);
  EXPECT_TRUE(check.stopped());
}

TEST(PanelWindow, DeviceChangesGoToBothStreams) {
  HostBench bench;
  bench.start(1000);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 2u);
  bench.machine.driver().query_remove(sim::PinId::mic);
  bench.run_for(10);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 1u);  // its stream lets go
  bench.machine.driver().query_remove(sim::PinId::speaker);
  bench.run_for(10);
  EXPECT_EQ(bench.machine.driver().removal_notices(), 0u);
}

TEST(PanelWindow, WindowsAnswerDeviceChangesWithOne) {
  HostBench bench;
  bench.start(1000);
  std::int64_t panel = 0;
  std::int64_t mute = 0;
  bench.machine.script().before(sim::Step::dispatch_message, 1, [&] {  // on the windows' thread
    Windows& windows = bench.machine.desktop().windows();
    panel = windows.send_message(bench.host->m_hWnd, kWmDeviceChange, 0);
    mute = windows.send_message(bench.host->m_hMuteWnd, kWmDeviceChange, 0);
  });
  bench.post_any();
  bench.run_for(10);
  EXPECT_EQ(panel, 1);
  EXPECT_EQ(mute, 1);
}

}  // namespace
}  // namespace sonivo::test
