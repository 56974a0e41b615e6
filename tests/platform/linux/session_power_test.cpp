// What a program learns of its session and of the machine's power, from what logind tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "mocked_bus.h"
#include "platform/linux/headless_desktop.h"
#include "platform/linux/power.h"
#include "platform/linux/session.h"

namespace sonivo::test {
namespace {

using linux::SessionState;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionPower : public testing::Test {
 protected:
  WindowHandle window() {
    return desktop.windows().create("window", {}, [this](const Message& message) {
      seen.push_back(message);
      return desktop.windows().default_procedure(message);
    });
  }
  std::vector<Message> pump() {
    seen.clear();
    for (Message message; desktop.peek_message(message);) desktop.dispatch_message(message);
    return seen;
  }
  static SessionState state(const char* id, bool active) { return {.logind = true, .id = id, .active = active}; }

  linux::HeadlessDesktop desktop;
  std::vector<Message> seen;
};

class LogindSessionTest : public SessionPower {
 protected:
  linux::LogindSession session{desktop.state()};
};

TEST_F(LogindSessionTest, IsNumberedAsLogindNamesIt) {
  EXPECT_EQ(linux::session_number("7"), 7u);
  EXPECT_EQ(linux::session_number("4294967294"), 4294967294u);
  EXPECT_EQ(linux::session_number("c7"), 0x80000007u);
}

TEST_F(LogindSessionTest, HasTheConsoleWhileItIsActive) {
  std::uint32_t own = 0;
  session.set(state("5", true));
  EXPECT_TRUE(session.process_session(own));
  EXPECT_EQ(own, 5u);
  EXPECT_EQ(session.console_session(), 5u);
  session.set(state("5", false));
  EXPECT_TRUE(session.process_session(own));
  EXPECT_EQ(session.console_session(), kNoSession);
}

TEST_F(LogindSessionTest, IsActiveOnAMachineWithoutLogindAndOutsideOfSessionsWhereItKnowsNone) {
  std::uint32_t own = 0;
  session.set({});
  EXPECT_TRUE(session.process_session(own));
  EXPECT_EQ(session.console_session(), own);
  session.set({.logind = true, .active = false});
  EXPECT_TRUE(session.process_session(own));
  EXPECT_EQ(own, 0u);
  EXPECT_EQ(session.console_session(), kNoSession);
}

TEST_F(LogindSessionTest, TellsTheWindowThatAskedOfEachChange) {
  session.set(state("3", true));
  const WindowHandle handle = window();
  window();
  auto registration = session.notify(handle);
  SessionState locked = state("3", true);
  locked.locked = true;
  session.set(locked);
  session.set(locked);
  session.set(state("3", true));
  session.set(state("3", false));
  session.set(state("3", true));
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmSessionChange, kSessionLock, 3},
                                  Message{handle, kWmSessionChange, kSessionUnlock, 3},
                                  Message{handle, kWmSessionChange, kSessionConsoleDisconnect, 3},
                                  Message{handle, kWmSessionChange, kSessionConsoleConnect, 3}));
  registration.reset();
  session.set(locked);
  EXPECT_THAT(pump(), IsEmpty());
  EXPECT_EQ(session.notify(WindowHandle{5}), nullptr);
}

TEST_F(LogindSessionTest, EndsOnceAllWindowsHaveAnswered) {
  const WindowHandle lower = window();
  const WindowHandle upper = window();
  session.end();
  EXPECT_THAT(pump(), ElementsAre(Message{upper, kWmQueryEndSession, 0, 0}, Message{lower, kWmQueryEndSession, 0, 0},
                                  Message{upper, kWmEndSession, 1, 0}, Message{lower, kWmEndSession, 1, 0}));
}

TEST_F(LogindSessionTest, ThatEndsBeforeThereIsAWindowAsksTheFirstThatRegisters) {
  session.end();
  const WindowHandle handle = window();
  const auto registration = session.notify(handle);
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmQueryEndSession, 0, 0}, Message{handle, kWmEndSession, 1, 0}));
  const auto another = session.notify(handle);
  EXPECT_THAT(pump(), IsEmpty()) << "once";
}

TEST_F(LogindSessionTest, HasWhatItsUserRunsOutsideOfSessions) {
  session.set(state("6", true));
  char* id = nullptr;
  const bool in_session = sd_pid_get_session(::getpid(), &id) >= 0;  // on somebody's desktop
  EXPECT_EQ(session.of_process(::getpid()), in_session ? linux::session_number(id) : 6u);
  std::free(id);
  EXPECT_EQ(session.of_process(0x7FFFFFFF), kNoSession);
}

class LogindPowerTest : public SessionPower {
 protected:
  std::unique_ptr<Registration> noting_callback() {
    return power.register_suspend_resume([this](std::uint64_t transition) {
      happening.change([&] { transitions.push_back(transition); });
      return 0u;
    });
  }
  /// The delay of a sleep, and whether it is still held.
  std::weak_ptr<linux::SleepDelay> suspend() {
    auto delay = std::make_shared<linux::SleepDelay>(Descriptor());
    const std::weak_ptr<linux::SleepDelay> watched = delay;
    power.suspend(std::exchange(delay, nullptr));
    return watched;
  }

  TemporaryFolder folder;
  Happening happening;
  std::vector<std::uint64_t> transitions;
  int asked_for_display = 0;
  linux::LogindPower power{
      desktop.state(),
      {.require_display = [this] { return ++asked_for_display == 1; }, .mem_sleep = folder / "mem_sleep"}};
};

TEST_F(LogindPowerTest, TransitionsReachEveryWindowAndEachCallback) {
  const WindowHandle handle = window();
  const auto registration = noting_callback();
  suspend();
  power.resume();
  EXPECT_TRUE(happening.wait_until([&] { return transitions.size() == 2; }));
  EXPECT_THAT(transitions, ElementsAre(kPowerSuspend, kPowerResumeAutomatic));
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmPowerBroadcast, kPowerSuspend, 0},
                                  Message{handle, kWmPowerBroadcast, kPowerResumeAutomatic, 0}));
}

TEST_F(LogindPowerTest, TheSleepWaitsForTheWindows) {
  window();
  const auto delay = suspend();
  EXPECT_FALSE(delay.expired());
  pump();
  for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
       !delay.expired() && std::chrono::steady_clock::now() < end;) {
    std::this_thread::yield();  // the thread of the callbacks has none to call
  }
  EXPECT_TRUE(delay.expired());
}

TEST_F(LogindPowerTest, TheSleepWaitsForTheCallbacks) {
  bool go = false;
  bool held = false;
  std::weak_ptr<linux::SleepDelay> delay;
  const auto slow = power.register_suspend_resume([&](std::uint64_t transition) {
    happening.wait_until([&] { return go; });
    happening.change([&] {
      held = !delay.expired();
      transitions.push_back(transition);
    });
    return 0u;
  });
  happening.change([&] { delay = suspend(); });
  happening.change([&] { go = true; });
  EXPECT_TRUE(happening.wait_until([&] { return !transitions.empty(); }));
  EXPECT_TRUE(held);
}

TEST_F(LogindPowerTest, ACallbackIsNotCalledOnceItsRegistrationHasEndedWhichWaitsForTheCallUnderWay) {
  bool inside = false;
  bool ended = false;
  std::unique_ptr<Registration> registration = power.register_suspend_resume([&](std::uint64_t) {
    happening.change([&] { inside = true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ended = true;
    return 0u;
  });
  suspend();
  ASSERT_TRUE(happening.wait_until([&] { return inside; }));
  registration.reset();
  EXPECT_TRUE(ended);
  ended = false;
  power.resume();
  const auto later = noting_callback();
  suspend();
  EXPECT_TRUE(happening.wait_until([&] { return !transitions.empty(); }));
  EXPECT_FALSE(ended);
  EXPECT_THAT(transitions, ElementsAre(kPowerSuspend)) << "it came after the resume";
}

TEST_F(LogindPowerTest, ACallbackMayEndItsOwnRegistration) {
  std::unique_ptr<Registration> registration;
  int calls = 0;
  const auto after = noting_callback();
  registration = power.register_suspend_resume([&](std::uint64_t) {
    registration.reset();
    ++calls;
    return 0u;
  });
  suspend();
  power.resume();
  EXPECT_TRUE(happening.wait_until([&] { return transitions.size() == 2; }));
  EXPECT_EQ(calls, 1);
}

TEST_F(LogindPowerTest, TheDisplayIsOffWhileNobodyUsesTheSession) {
  std::vector<std::uint32_t> states;
  const WindowHandle handle = desktop.windows().create("display", {}, [&](const Message& message) {
    EXPECT_EQ(message.wParam, kPowerSettingChange);
    const auto* setting = record_of<PowerSetting>(message);
    EXPECT_EQ(setting->setting, kConsoleDisplayState);
    EXPECT_EQ(setting->data_length, 4u);
    states.push_back(setting->data);
    return 1;
  });
  auto registration = power.register_setting(handle, kConsoleDisplayState);
  power.set_idle(false);
  power.set_idle(true);
  power.set_idle(true);
  power.set_idle(false);
  pump();
  EXPECT_THAT(states, ElementsAre(kDisplayOn, kDisplayOff, kDisplayOn));
  registration.reset();
  power.set_idle(true);
  pump();
  EXPECT_EQ(states.size(), 3u);
  EXPECT_EQ(power.register_setting(handle, Guid{1, 2, 3, {}}), nullptr);
  EXPECT_EQ(power.register_setting(WindowHandle{5}, kConsoleDisplayState), nullptr);
}

TEST_F(LogindPowerTest, ConnectedStandbyIsWhereSuspendToIdleIsChosen) {
  PowerCapabilities capabilities{.AoAc = true};
  EXPECT_TRUE(power.capabilities(capabilities));
  EXPECT_FALSE(capabilities.AoAc) << "the system says nothing";
  folder.write("mem_sleep", "s2idle [deep]\n");
  power.capabilities(capabilities);
  EXPECT_FALSE(capabilities.AoAc);
  folder.write("mem_sleep", "[s2idle] deep\n");
  power.capabilities(capabilities);
  EXPECT_TRUE(capabilities.AoAc);
}

TEST_F(LogindPowerTest, TheDisplayIsAskedForWhereThereIsAWay) {
  EXPECT_TRUE(power.require_display());
  EXPECT_FALSE(power.require_display());
}

}  // namespace
}  // namespace sonivo::test
