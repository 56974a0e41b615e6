// What the panel makes of power, lock and end, and what it leaves alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_windows.h"
#include "host_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

namespace c = control;

/// A service in a meeting whose panel shows. The driver asks for an automatic exit by this value.
struct MeetingBench : HostBench {
  explicit MeetingBench(std::uint32_t auto_exit = 1) {
    machine.power().set_connected_standby(true);
    start(1000);
    driver().set_number(c::GetAutoExit, auto_exit);
    driver().set_number(c::NSV_GET_LAUNCHED_MTG, 1);
    machine.desktop().windows().show_at(host->m_hWnd, {0, 0, 10, 10}, Stacking::unchanged);
    run_for(300);  // the painting, and a look at the headphones
    driver().forget_requests();
  }
  bool shows() { return machine.desktop().windows().visible(host->m_hWnd); }
  bool in_meeting() { return driver().number(c::NSV_GET_LAUNCHED_MTG) != 0; }
  bool asked_for_reboot() {
    for (const auto& message : machine.desktop().messages()) {
      if (message.message == WM_EVENT_MDN) return true;
    }
    return false;
  }
};

// ---- The display

TEST(PanelAndDisplay, OnlyADisplayThatIsOnHidesThePanelAndEndsTheMeeting) {
  MeetingBench bench;
  for (const std::uint32_t state : {kDisplayDimmed, kDisplayOff}) {
    bench.machine.power().set_display(state);
    bench.run_for(50);
    EXPECT_EQ(bench.host->m_dwMonitorStatus, state);
    EXPECT_TRUE(bench.shows());
    EXPECT_TRUE(bench.in_meeting());
  }
  bench.machine.power().set_display(kDisplayOn);
  bench.run_for(50);
  EXPECT_FALSE(bench.shows());
  EXPECT_FALSE(bench.in_meeting());
}

TEST(PanelAndDisplay, TheFirstByteOfTheSettingCounts) {
  MeetingBench bench;
  bench.machine.power().set_display(0x01010100 + kDisplayDimmed);
  bench.run_for(10);
  EXPECT_EQ(bench.host->m_dwMonitorStatus, kDisplayDimmed);
}

// ---- Suspend and resume

TEST(PanelAndPower, AnyAutomaticExitButZeroEndsTheMeeting) {
  MeetingBench bench(2);
  bench.post(kWmPowerBroadcast, kPowerSuspend);
  bench.run_for(50);
  EXPECT_FALSE(bench.in_meeting());
  EXPECT_EQ(bench.driver().number(c::GetKeyboardCancelMTG), 0u);
}

TEST(PanelAndPower, AResumeMessageAsksForNoRebootEvenWithoutAnAnswerOfTheDriver) {
  MeetingBench bench;
  bench.driver().fail(c::GetAutoExit, error::kAccessDenied);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(50);
  EXPECT_FALSE(bench.asked_for_reboot());
  DeviceNotifyCallbackRoutine(*bench.host, kPowerResumeAutomatic);
  EXPECT_TRUE(bench.asked_for_reboot());
}

TEST(PanelAndPower, OnlyTheResumeMessageTakesTheServiceLockBack) {
  MeetingBench bench;
  bench.host->m_bSonivoServiceLock = 1;
  DeviceNotifyCallbackRoutine(*bench.host, kPowerResumeAutomatic);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(10);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 0u);
}

// ---- The end

TEST(PanelAndEnd, ADestroyIsAnsweredWithZeroAndNotLeftToTheDefault) {
  MeetingBench bench;
  std::int64_t answer = 77;
  std::uint64_t by_default = 77;
  bench.machine.script().before(sim::Step::dispatch_message, 1, [&] {  // on the windows' thread
    const std::uint64_t before = bench.machine.script().count(sim::Step::window_default_procedure);
    answer = bench.machine.desktop().windows().send_message(bench.host->m_hWnd, kWmDestroy, 0);
    by_default = bench.machine.script().count(sim::Step::window_default_procedure) - before;
  });
  bench.post_any();
  bench.run_for(1000);
  EXPECT_EQ(answer, 0);
  EXPECT_EQ(by_default, 0u);
  EXPECT_EQ(bench.exit_code, 0);
}

TEST(PanelAndEnd, EndOfSessionAndUnlockAreSaid) {
  MeetingBench bench;
  bench.log.clear();
  bench.post(kWmSessionChange, kSessionConsoleConnect);
  bench.run_for(10);
  EXPECT_FALSE(bench.log.has("[WindowProc] WTS_SESSION_UNLOCK\n"));
  bench.post(kWmSessionChange, kSessionUnlock);
  bench.run_for(10);
  EXPECT_EQ(bench.log.count("[WindowProc] WTS_SESSION_UNLOCK\n"), 1u);
  EXPECT_FALSE(bench.log.has("[WindowProc] WM_ENDSESSION\n"));
  bench.post(kWmEndSession, 1);
  bench.run_for(10);
  EXPECT_EQ(bench.log.count("[WindowProc] WM_ENDSESSION\n"), 1u);
}

/// Notes its end.
class ToldHook final : public Registration {
 public:
  ToldHook(std::vector<std::string>& ended, std::string name) : ended_(ended), name_(std::move(name)) {}
  ~ToldHook() override { ended_.push_back(name_); }

 private:
  std::vector<std::string>& ended_;
  const std::string name_;
};

TEST(PanelAndEnd, TheMousesHookGoesBeforeTheKeyboards) {
  MeetingBench bench;
  std::vector<std::string> ended;
  bench.host->m_hKeyHookWnd = std::make_unique<ToldHook>(ended, "keyboard");
  bench.host->m_hHookWnd = std::make_unique<ToldHook>(ended, "mouse");
  bench.post(kWmClose);  // the way out that doesn't hide the panel
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(ended, testing::ElementsAre("mouse", "keyboard"));
}

// ---- The start

TEST(PanelAtStart, IsTheWindowThatIsHidden) {
  HostBench bench;
  bench.machine.script().before(sim::Step::window_hide, 1, [&] {
    Windows& windows = bench.machine.desktop().windows();
    windows.show_at(bench.host->m_hWnd, {0, 0, 10, 10}, Stacking::unchanged);
    windows.show_at(bench.host->m_hMuteWnd, {0, 0, 10, 10}, Stacking::unchanged);
  });
  bench.start();
  EXPECT_FALSE(bench.machine.desktop().windows().visible(bench.host->m_hWnd));
  EXPECT_TRUE(bench.machine.desktop().windows().visible(bench.host->m_hMuteWnd));
}

TEST(PanelAtStart, IsNeitherPressedNorHoveredNorChosenFrom) {
  HostBench bench;
  bench.start();
  EXPECT_EQ(bench.host->m_iHoverPos, 0);
  EXPECT_EQ(bench.host->m_bPressed, 0u);
  EXPECT_EQ(bench.host->m_bHover, 0u);
  EXPECT_EQ(bench.host->m_bFocusFrame, 0u);
  EXPECT_EQ(bench.host->m_bModeChangeRequest, 0u);
  EXPECT_EQ(bench.host->m_hHookWnd, nullptr);
  EXPECT_EQ(bench.host->m_hKeyHookWnd, nullptr);
}

}  // namespace
}  // namespace sonivo::test
