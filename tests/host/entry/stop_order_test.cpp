// In which order the threads are stopped and the service ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "host/host_windows.h"
#include "host/stopping.h"
#include "main_thread_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
namespace c = control;

// ---- The threads

TEST(StoppingThreads, TheRequestIsGivenUpBeforeTheDriverIsAskedToEndIt) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  ASSERT_EQ(bench.driver().pending_requests(), 1u);
  bool asked = false;
  bench.machine.script().before(sim::Step::control_request, 1, [&] {
    asked = true;
    EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);
    EXPECT_EQ(bench.host->m_bThreadExit, 1u);
    EXPECT_EQ(bench.host->m_bDriverReady, 1u);
    EXPECT_EQ(bench.driver().open_handles(), 2u);
    EXPECT_FALSE(bench.driver_lock_is_free());
    bench.run_for(1);  // the thread that waited goes on
    EXPECT_EQ(bench.driver().pending_requests(), 0u);
  });
  StopDriverThreads(*bench.host);
  EXPECT_TRUE(asked);
  EXPECT_EQ(bench.all_codes().back(), c::NSV_SERVICE_EVENT_CANCEL);
}

TEST(StoppingThreads, TheHandlesCloseLastUnderTheLock) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bool closed = false;
  bench.machine.script().before(sim::Step::control_close, 1, [&] {
    closed = true;
    EXPECT_EQ(bench.host->m_bDriverReady, 0u);
    EXPECT_EQ(bench.all_codes().back(), c::NSV_SERVICE_EVENT_CANCEL);
    EXPECT_FALSE(bench.driver_lock_is_free());
  });
  StopDriverThreads(*bench.host);
  EXPECT_TRUE(closed);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  EXPECT_TRUE(bench.driver_lock_is_free());
}

TEST(StoppingThreads, TheFlagsDoNotWaitForTheDriversLock) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  bench.host->m_csDriver.lock();
  const auto stopping = bench.machine.scheduler().start("stopping", [&] { StopDriverThreads(*bench.host); });
  bench.run_for(100);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  bench.host->m_csDriver.unlock();
  bench.run_for(100);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  stopping->join();
}

// ---- What happens before and after

/// A service whose panel has its bitmap, and its steps of some names.
struct OrderBench : HostBench {
  OrderBench() {
    store_bitmap(200, 1, 1);
    start(1000);
    machine.script().start_trace();
  }
  std::vector<std::string> steps_of(const std::vector<std::string>& names) {
    auto all = steps();
    std::erase_if(all,
                  [&](const std::string& step) { return std::find(names.begin(), names.end(), step) == names.end(); });
    return all;
  }
};

TEST(StopOrder, ADestroyedPanelLetsGoOfWhatIsItsOwnFirst) {
  OrderBench bench;
  bench.post(kWmClose);
  bench.run_for(1000);
  EXPECT_THAT(
      bench.steps_of({"bitmap_delete", "session_unregister", "control_close", "post_quit_message"}),
      ElementsAre("bitmap_delete", "session_unregister", "control_close", "control_close", "post_quit_message"));
}

TEST(StopOrder, TheEndOfASessionLeavesTheMeetingThenHidesThenStops) {
  OrderBench bench;
  bench.driver().forget_requests();
  std::vector<std::uint32_t> before_hiding;
  bench.machine.script().before(sim::Step::window_hide, 1, [&] { before_hiding = bench.driver().codes(); });
  bench.machine.session().query_end();
  bench.run_for(1000);
  EXPECT_THAT(before_hiding, Contains(c::GetAutoExit));
  EXPECT_THAT(bench.steps_of({"window_hide", "control_close", "post_quit_message"}),
              ElementsAre("window_hide", "control_close", "control_close", "post_quit_message"));
}

TEST(StopOrder, ASuspendHidesAfterTheMeetingByMessageAndBeforeItByCallback) {
  for (const bool by_message : {true, false}) {
    OrderBench bench;
    bench.driver().forget_requests();
    std::vector<std::uint32_t> before_hiding;
    std::size_t handles = 0;
    bench.machine.script().before(sim::Step::window_hide, 1, [&] {
      before_hiding = bench.driver().codes();
      handles = bench.driver().open_handles();
    });
    if (by_message) {
      bench.post(kWmPowerBroadcast, kPowerSuspend);
    } else {
      DeviceNotifyCallbackRoutine(*bench.host, kPowerSuspend);
    }
    bench.run_for(1000);
    EXPECT_EQ(handles, 2u);
    EXPECT_EQ(std::count(before_hiding.begin(), before_hiding.end(), c::GetAutoExit), by_message ? 1 : 0);
    EXPECT_THAT(bench.driver().codes(), Contains(c::GetAutoExit));
    EXPECT_EQ(bench.driver().open_handles(), 0u);
  }
}

TEST(StopOrder, ADisplayThatComesOnLeavesTheMeetingThenAsksForTheRebootThenHides) {
  OrderBench bench;
  bench.host->m_bModernStandby = 1;
  bench.driver().fail(c::GetAutoExit, error::kAccessDenied);
  bench.driver().forget_requests();
  std::vector<std::uint32_t> before_hiding;
  std::size_t asked_for_reboot = 0;
  bench.machine.script().before(sim::Step::window_hide, 1, [&] {
    before_hiding = bench.driver().codes();
    for (const auto& message : bench.machine.desktop().messages()) {
      if (message.message == WM_EVENT_MDN) ++asked_for_reboot;
    }
  });
  bench.machine.power().set_display(kDisplayOn);
  bench.run_for(100);
  EXPECT_THAT(before_hiding, ElementsAre(c::GetAutoExit));
  EXPECT_EQ(asked_for_reboot, 1u);
}

TEST(ResumeOrder, TheModeIsReadBeforeTheMeetingIsLeft) {
  for (const bool by_message : {true, false}) {
    OrderBench bench;
    bench.driver().set_number(c::GetAutoExit, 1);
    bench.driver().set_number(c::NSV_GET_LAUNCHED_MTG, 1);
    bench.driver().set_number(c::NSV_GET_ALL_SP_MTG, 1);
    bench.driver().forget_requests();
    if (by_message) {
      bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
      bench.run_for(10);
    } else {
      DeviceNotifyCallbackRoutine(*bench.host, kPowerResumeAutomatic);
    }
    EXPECT_THAT(bench.driver().codes(), ElementsAre(c::NSV_GET_LAUNCHED_MTG, c::NSV_GET_ALL_SP_MTG, c::GetAutoExit,
                                                    c::NSV_SET_LAUNCHED_MTG, c::SetKeyboardCancelMTG));
    EXPECT_EQ(bench.host->m_iMeetingMode, by_message ? 2 : 0);
  }
}

TEST(ResumeOrder, TheServiceLockIsTakenBackBeforeTheModeIsRead) {
  OrderBench bench;
  bench.host->m_bSonivoServiceLock = 1;
  std::uint32_t found = 77;
  bench.driver().before(c::NSV_GET_LAUNCHED_MTG, [&] { found = bench.host->m_bSonivoServiceLock; });
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(10);
  EXPECT_EQ(found, 0u);
}

TEST(ResumeOrder, AMeetingThatIsOffLeavesTheRoomCorrectionAsItWas) {
  OrderBench bench;
  bench.host->m_RoomCorrection = 1;
  bench.host->SetMeetingModes(2);
  bench.post(kWmPowerBroadcast, kPowerResumeAutomatic);
  bench.run_for(10);
  EXPECT_EQ(bench.host->m_RoomCorrection, 1u);
  EXPECT_EQ(bench.host->m_iMeetingMode, 0);
}

TEST(StopOrder, LockUnlockAndEndOfSessionAreHandledByDefaultToo) {
  OrderBench bench;
  const auto by_default = [&] { return bench.machine.script().count(sim::Step::window_default_procedure); };
  for (const auto& [message, wParam] :
       {std::pair{kWmSessionChange, kSessionUnlock}, std::pair{kWmEndSession, std::uint64_t{1}},
        std::pair{kWmSessionChange, kSessionLock}}) {
    const std::uint64_t before = by_default();
    bench.post(message, wParam);
    bench.run_for(10);
    EXPECT_EQ(by_default(), before + 1) << message << " " << wParam;
  }
}

TEST(ShutDownOrder, TheRelayEndsBeforeThePowerRegistrationsAndTheBitmap) {
  OrderBench bench;
  bench.machine.session().query_end();
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(bench.steps_of({"post_quit_message", "endpoints_unregister", "power_unregister_setting",
                              "power_unregister_suspend_resume", "bitmap_delete"}),
              ElementsAre("post_quit_message", "endpoints_unregister", "power_unregister_setting",
                          "power_unregister_suspend_resume", "bitmap_delete"));
}

TEST(ShutDownOrder, HooksThatAreLeftGoAfterTheRelay) {
  OrderBench bench;
  InputDevices& input = bench.machine.desktop().input();
  bench.host->m_hHookWnd = input.hook_mouse([](const MouseInput&) { return false; });
  bench.host->m_hKeyHookWnd = input.hook_keyboard([](const KeyInput&) { return false; });
  bench.post(kWmClose);  // the way out that doesn't hide the panel
  bench.run_for(1000);
  EXPECT_THAT(bench.steps_of({"endpoints_unregister", "hook_remove", "power_unregister_setting"}),
              ElementsAre("endpoints_unregister", "hook_remove", "hook_remove", "power_unregister_setting"));
}

}  // namespace
}  // namespace sonivo::test
