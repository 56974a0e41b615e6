#include "platform/sim/power.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PowerTest : public DesktopBench {
 protected:
  /// A window that notes the display states it is told.
  WindowHandle display_window() {
    return windows.create("display", {}, [this](const Message& message) {
      EXPECT_EQ(message.message, kWmPowerBroadcast);
      EXPECT_EQ(message.wParam, kPowerSettingChange);
      const auto* setting = record_of<PowerSetting>(message);
      EXPECT_EQ(setting->setting, kConsoleDisplayState);
      EXPECT_EQ(setting->data_length, 4u);
      states.push_back(setting->data);
      return 1;
    });
  }
  std::unique_ptr<Registration> noting_callback() {
    return power.register_suspend_resume([this](std::uint64_t transition) {
      transitions.push_back(transition);
      return 0u;
    });
  }
  SimPower& power = machine.power();
  std::vector<std::uint32_t> states;
  std::vector<std::uint64_t> transitions;
};

TEST_F(PowerTest, SuspendAndResumeAreSentToEveryWindowUnasked) {
  const WindowHandle lower = window("lower");
  const WindowHandle upper = window("upper");
  foreground.add_foreign("other", {});
  power.suspend();
  power.resume();
  EXPECT_THAT(pump(), ElementsAre(Message{upper, kWmPowerBroadcast, kPowerSuspend, 0},
                                  Message{lower, kWmPowerBroadcast, kPowerSuspend, 0},
                                  Message{upper, kWmPowerBroadcast, kPowerResumeAutomatic, 0},
                                  Message{lower, kWmPowerBroadcast, kPowerResumeAutomatic, 0}));
}

TEST_F(PowerTest, CallbacksAreCalledOnTheMachinesOwnThread) {
  ThreadId called_on = ThreadId::none;
  const auto noting = noting_callback();
  const auto where = power.register_suspend_resume([&](std::uint64_t) {
    called_on = desktop.current_thread();
    return 0u;
  });
  power.suspend();
  power.resume();
  EXPECT_THAT(transitions, IsEmpty());
  machine.run_for(1);
  EXPECT_THAT(transitions, ElementsAre(kPowerSuspend, kPowerResumeAutomatic));
  EXPECT_NE(called_on, desktop.current_thread());
  EXPECT_NE(called_on, ThreadId::none);
}

TEST_F(PowerTest, ACallbackIsNotCalledOnceItsRegistrationHasEnded) {
  auto registration = noting_callback();
  power.suspend();
  EXPECT_EQ(machine.leaks().power_registrations, 1u);
  registration.reset();
  EXPECT_EQ(machine.leaks().power_registrations, 0u);
  machine.run_for(1);
  EXPECT_THAT(transitions, IsEmpty());
  EXPECT_EQ(script.count(Step::power_unregister_suspend_resume), 1u);
}

TEST_F(PowerTest, ACallbackRegisteredAfterTheTransitionIsNotToldOfIt) {
  const auto early = power.register_suspend_resume([](std::uint64_t) { return 0u; });
  power.suspend();
  const auto late = noting_callback();
  machine.run_for(1);
  EXPECT_THAT(transitions, IsEmpty());
}

TEST_F(PowerTest, EndingARegistrationWaitsForTheCallUnderWay) {
  bool ended = false;
  auto registration = power.register_suspend_resume([&](std::uint64_t) {
    machine.scheduler().sleep_ms(50);
    ended = true;
    return 0u;
  });
  power.suspend();
  machine.run_for(1);
  registration.reset();
  EXPECT_TRUE(ended);
  EXPECT_EQ(now_ms(), 50u);
}

TEST_F(PowerTest, ACallbackMayEndItsOwnRegistration) {
  std::unique_ptr<Registration> registration;
  int calls = 0;
  registration = power.register_suspend_resume([&](std::uint64_t) {
    registration.reset();
    ++calls;
    return 0u;
  });
  power.suspend();
  power.resume();
  machine.run_for(1);
  EXPECT_EQ(calls, 1);
}

// ---- Display

TEST_F(PowerTest, TheDisplayIsToldAtTheRegistrationAndAtEachChange) {
  power.set_display(kDisplayDimmed);
  auto registration = power.register_setting(display_window(), kConsoleDisplayState);
  ASSERT_NE(registration, nullptr);
  power.set_display(kDisplayOff);
  power.set_display(kDisplayOn);
  pump();
  EXPECT_THAT(states, ElementsAre(kDisplayDimmed, kDisplayOff, kDisplayOn));
  registration.reset();
  power.set_display(kDisplayOff);
  pump();
  EXPECT_EQ(states.size(), 3u);
  EXPECT_EQ(script.count(Step::power_unregister_setting), 1u);
}

TEST_F(PowerTest, EachRegistrationOfAWindowTells) {
  const WindowHandle handle = display_window();
  const auto first = power.register_setting(handle, kConsoleDisplayState);
  const auto second = power.register_setting(handle, kConsoleDisplayState);
  EXPECT_EQ(machine.leaks().power_registrations, 2u);
  pump();
  states.clear();
  power.set_display(kDisplayOff);
  pump();
  EXPECT_THAT(states, ElementsAre(kDisplayOff, kDisplayOff));
}

TEST_F(PowerTest, UnknownSettingsAndWindowsAreRefused) {
  EXPECT_EQ(power.register_setting(window(), Guid{1, 2, 3, {}}), nullptr);
  EXPECT_EQ(power.register_setting(WindowHandle{4}, kConsoleDisplayState), nullptr);
  EXPECT_EQ(power.register_suspend_resume(nullptr), nullptr);
}

// ---- Capabilities, scripts

TEST_F(PowerTest, ConnectedStandbyIsAsConfigured) {
  PowerCapabilities capabilities{.AoAc = true};
  EXPECT_TRUE(power.capabilities(capabilities));
  EXPECT_FALSE(capabilities.AoAc);
  power.set_connected_standby(true);
  EXPECT_TRUE(power.capabilities(capabilities));
  EXPECT_TRUE(capabilities.AoAc);
}

TEST_F(PowerTest, EveryOperationFailsAsScripted) {
  const WindowHandle handle = window();
  script.fail(Step::power_register_suspend_resume, 1);
  EXPECT_EQ(noting_callback(), nullptr);
  script.fail(Step::power_register_setting, 1);
  EXPECT_EQ(power.register_setting(handle, kConsoleDisplayState), nullptr);
  PowerCapabilities capabilities;
  script.fail(Step::power_capabilities, 1);
  EXPECT_FALSE(power.capabilities(capabilities));
  script.fail(Step::power_require_display, 1);
  EXPECT_FALSE(power.require_display());
  EXPECT_TRUE(power.require_display());
  EXPECT_EQ(script.count(Step::power_require_display), 2u);
  power.suspend();
  machine.run_for(1);
  EXPECT_THAT(transitions, IsEmpty());
  EXPECT_EQ(machine.leaks().power_registrations, 0u);
}

}  // namespace
}  // namespace sonivo::sim
