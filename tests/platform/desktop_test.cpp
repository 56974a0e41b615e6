#include "platform/sim/desktop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kFirst = 0x8001;
constexpr std::uint32_t kSecond = 0x8002;

using DesktopTest = DesktopBench;

TEST_F(DesktopTest, PostedMessagesComeInOrder) {
  const WindowHandle one = window();
  const WindowHandle other = window();
  desktop.post_message(one, kFirst, 1);
  desktop.post_message(other, kFirst, 2);
  desktop.post_message(one, kSecond, 3);
  EXPECT_THAT(pump(),
              ElementsAre(Message{one, kFirst, 1, 0}, Message{other, kFirst, 2, 0}, Message{one, kSecond, 3, 0}));
}

TEST_F(DesktopTest, AMessageWakesTheThreadThatWaitsForIt) {
  const WindowHandle handle = window();
  machine.after(40, [&] { desktop.post_message(handle, kFirst, 0); });
  Message message;
  EXPECT_EQ(desktop.get_message(message), Got::message);
  EXPECT_EQ(now_ms(), 40u);
  EXPECT_EQ(message, (Message{handle, kFirst, 0, 0}));
}

TEST_F(DesktopTest, AProcedureAnswersWhatIsDispatched) {
  const WindowHandle handle = windows.create(
      "answers", {}, [](const Message& message) { return static_cast<std::int64_t>(message.wParam) + 1; });
  EXPECT_EQ(desktop.dispatch_message({handle, kFirst, 41, 0}), 42);
  EXPECT_EQ(desktop.dispatch_message({WindowHandle{5}, kFirst, 41, 0}), 0);
}

TEST_F(DesktopTest, AQuitComesBeforeAllThatIsQueuedAndOnce) {
  const WindowHandle handle = window();
  desktop.post_message(handle, kFirst, 0);
  desktop.post_quit_message(7);
  Message message;
  EXPECT_EQ(desktop.get_message(message), Got::quit);
  EXPECT_EQ(message, (Message{WindowHandle::none, kWmQuit, 7, 0}));
  EXPECT_EQ(desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kFirst);
}

TEST_F(DesktopTest, PeekingShowsAQuitAsAMessageAndNeverWaits) {
  Message message;
  EXPECT_FALSE(desktop.peek_message(message));
  desktop.post_quit_message(0);
  EXPECT_TRUE(desktop.peek_message(message));
  EXPECT_EQ(message.message, kWmQuit);
  EXPECT_EQ(now_ms(), 0u);
}

TEST_F(DesktopTest, AThreadGetsMessagesOfItsOwnOnceItHasAQueue) {
  ThreadId id = ThreadId::none;
  std::vector<std::uint64_t> got;
  const auto thread = machine.scheduler().start("loop", [&] {
    id = desktop.current_thread();
    for (Message message; desktop.get_message(message) == Got::message;) {
      got.push_back(message.wParam);
      if (message.wParam == 2) desktop.post_quit_message(0);
    }
  });
  EXPECT_FALSE(desktop.post_thread_message(ThreadId{3}, kFirst, 0)) << "it hasn't run yet";
  machine.run_for(1);
  EXPECT_NE(id, desktop.current_thread());
  EXPECT_TRUE(desktop.post_thread_message(id, kFirst, 1));
  EXPECT_TRUE(desktop.post_thread_message(id, kFirst, 2));
  thread->join();
  EXPECT_THAT(got, ElementsAre(1u, 2u));
}

TEST_F(DesktopTest, TimersInputAndPostedMessagesComeInTheOrderOfTheirTimes) {
  const WindowHandle handle = shown_window();
  windows.set_timer(handle, 2, 30);
  machine.after(10, [&] { desktop.post_message(handle, kFirst, 0); });
  machine.after(20, [&] { input.mouse(kWmMouseMove, {150, 150}); });
  machine.after(40, [&] { desktop.post_message(handle, kSecond, 0); });
  machine.run_for(50);
  EXPECT_THAT(pump_numbers(), ElementsAre(kFirst, kWmMouseMove, kWmTimer, kSecond));
}

TEST_F(DesktopTest, PaintComesWhenNothingElseIsQueuedAndOncePerAsking) {
  const WindowHandle handle = window();
  windows.invalidate(handle);
  EXPECT_THAT(pump_numbers(), IsEmpty()) << "it doesn't show";
  windows.show_at(handle, {0, 0, 50, 50}, Stacking::topmost);
  windows.invalidate(handle);
  desktop.post_message(handle, kFirst, 0);
  EXPECT_THAT(pump_numbers(), ElementsAre(kFirst, kWmPaint));
  EXPECT_THAT(pump_numbers(), IsEmpty());
  windows.invalidate(handle);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmPaint));
}

TEST_F(DesktopTest, AskingForPaintWakesTheWindowsThread) {
  const WindowHandle handle = shown_window();
  machine.after(15, [&] { windows.invalidate(handle); });
  Message message;
  EXPECT_EQ(desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kWmPaint);
  EXPECT_EQ(now_ms(), 15u);
}

TEST_F(DesktopTest, WhatTheMachineSendsIsAnsweredInsideTheWaitBeforeAQuit) {
  const WindowHandle handle = window();
  machine.after(5, [&] { machine.power().suspend(); });
  machine.after(9, [&] { desktop.post_message(handle, kFirst, 0); });
  Message message;
  EXPECT_EQ(desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kFirst) << "a sent message isn't returned";
  EXPECT_EQ(now_ms(), 9u);
  EXPECT_THAT(seen, ElementsAre(Message{handle, kWmPowerBroadcast, kPowerSuspend, 0}));
  machine.power().resume();
  desktop.post_quit_message(0);
  EXPECT_EQ(desktop.get_message(message), Got::quit);
  EXPECT_EQ(seen.size(), 2u);
}

TEST_F(DesktopTest, ARemovalReachesTheWindowThatAskedWithItsRecord) {
  Error why;
  const auto device =
      machine.driver().open(SimDriver::device_path(PinId::mic), Sharing::exclusive, Completion::overlapped, why);
  std::vector<DeviceBroadcast> records;
  const WindowHandle handle = windows.create("devices", {}, [&](const Message& message) {
    if (message.message == kWmDeviceChange) records.push_back(*record_of<DeviceBroadcast>(message));
    return 1;
  });
  const auto notice = machine.driver().notify_removal({kDeviceTypeHandle, device.get()}, handle);
  machine.driver().query_remove(PinId::mic);
  pump();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].devicetype, kDeviceTypeHandle);
  EXPECT_EQ(records[0].handle, device.get());
}

// ---- Waiting for events and messages at once

class DesktopWait : public DesktopBench {
 protected:
  WaitResult wait(std::optional<std::uint32_t> limit_ms = std::nullopt) {
    const std::array<Event*, 2> events{first.get(), second.get()};
    return desktop.wait_any_or_message(events, limit_ms);
  }
  std::unique_ptr<Event> first = machine.scheduler().create(Reset::automatic);
  std::unique_ptr<Event> second = machine.scheduler().create(Reset::automatic);
};

TEST_F(DesktopWait, AnswersTheEventOrTheMessageWhicheverComesFirst) {
  const WindowHandle handle = window();
  machine.after(10, [&] { second->set(); });
  machine.after(20, [&] { desktop.post_message(handle, kFirst, 0); });
  EXPECT_EQ(wait().index, 1u);
  EXPECT_EQ(now_ms(), 10u);
  EXPECT_EQ(wait().index, 2u);
  EXPECT_EQ(now_ms(), 20u);
  EXPECT_EQ(wait().index, 2u) << "the message is still there";
  EXPECT_THAT(pump_numbers(), ElementsAre(kFirst));
  EXPECT_EQ(wait(5).index, std::nullopt);
  EXPECT_EQ(now_ms(), 25u);
}

TEST_F(DesktopWait, AnEventGoesBeforeAMessage) {
  desktop.post_message(window(), kFirst, 0);
  second->set();
  EXPECT_EQ(wait().index, 1u);
}

TEST_F(DesktopWait, EndsForTimersSentMessagesQuitAndPaint) {
  const WindowHandle handle = window();
  windows.set_timer(handle, 1, 10);
  EXPECT_EQ(wait().index, 2u);
  windows.kill_timer(handle, 1);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmTimer));
  machine.power().suspend();
  EXPECT_EQ(wait().index, 2u);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmPowerBroadcast));
  windows.show_at(handle, {0, 0, 9, 9}, Stacking::topmost);
  EXPECT_EQ(wait().index, 2u);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmPaint));
  desktop.post_quit_message(0);
  EXPECT_EQ(wait().index, 2u);
}

TEST_F(DesktopWait, DoesNotEndForAPaintThatWasTakenBack) {
  const WindowHandle handle = shown_window();
  machine.after(10, [&] {
    windows.invalidate(handle);
    windows.hide(handle);
  });
  EXPECT_EQ(wait(50).index, std::nullopt);
  EXPECT_EQ(now_ms(), 50u);
}

TEST_F(DesktopWait, RefusesTooManyEventsAndMissingOnes) {
  const std::vector<Event*> many(64, first.get());
  EXPECT_EQ(desktop.wait_any_or_message(many).error, error::kInvalidParameter);
  EXPECT_EQ(desktop.wait_any_or_message(std::vector<Event*>(63, first.get()), 0).error, error::kNone);
  EXPECT_EQ(desktop.wait_any_or_message(std::vector<Event*>{nullptr}).error, error::kInvalidHandle);
}

// ---- Scripts

TEST_F(DesktopTest, EveryQueueOperationFailsAsScripted) {
  const WindowHandle handle = window();
  const ThreadId me = desktop.current_thread();
  Message message;
  script.fail(Step::get_message, 1);
  EXPECT_EQ(desktop.get_message(message), Got::failed);
  script.fail(Step::post_thread_message, 1);
  EXPECT_FALSE(desktop.post_thread_message(me, kFirst, 0));
  script.fail(Step::post_message, 1);
  desktop.post_message(handle, kFirst, 0);
  script.fail(Step::post_quit_message, 1);
  desktop.post_quit_message(0);
  EXPECT_FALSE(desktop.peek_message(message)) << "none of them was queued";
  script.fail(Step::wait_message, error::kInvalidHandle);
  EXPECT_EQ(desktop.wait_any_or_message({}, 0).error, error::kInvalidHandle);
  desktop.post_message(handle, kFirst, 0);
  script.fail(Step::peek_message, 1);
  EXPECT_FALSE(desktop.peek_message(message));
  EXPECT_TRUE(desktop.peek_message(message));
  script.fail(Step::dispatch_message, 1);
  desktop.dispatch_message(message);
  EXPECT_THAT(seen, IsEmpty());
}

/// Two threads post to the window of a third, which has timers and input besides.
std::vector<std::string> busy_desktop(Schedule schedule, std::uint64_t jitter_seed) {
  SimMachine machine({.schedule = schedule});
  machine.scheduler().set_jitter(jitter_seed);
  machine.script().start_trace();
  SimDesktop& desktop = machine.desktop();
  std::vector<std::string> log;
  WindowHandle handle = WindowHandle::none;
  const auto loop = machine.scheduler().start("loop", [&] {
    handle = desktop.windows().create("busy", {0, 0, 100, 100}, [&](const Message& message) {
      log.push_back(std::to_string(machine.scheduler().now()) + " " + std::to_string(message.message) + " " +
                    std::to_string(message.wParam));
      if (message.message == kWmDestroy) desktop.post_quit_message(0);
      return desktop.windows().default_procedure(message);
    });
    desktop.windows().show_at(handle, {0, 0, 100, 100}, Stacking::topmost);
    desktop.windows().set_timer(handle, 1, 10);
    for (Message message; desktop.get_message(message) == Got::message;) desktop.dispatch_message(message);
  });
  machine.run_for(1);
  std::vector<std::unique_ptr<Thread>> posters;
  for (const std::uint64_t number : {1u, 2u}) {
    posters.push_back(machine.scheduler().start("poster", [&, number] {
      for (int i = 0; i < 20; ++i) {
        desktop.post_message(handle, kFirst, number);
        desktop.windows().invalidate(handle);
        desktop.input().mouse(kWmMouseMove, {i, i});
        machine.scheduler().sleep_ms(5);
      }
    }));
  }
  for (const auto& poster : posters) poster->join();
  desktop.post_from_outside({.window = handle, .message = kWmClose});
  loop->join();
  const auto trace = machine.script().trace();
  log.insert(log.end(), trace.begin(), trace.end());
  EXPECT_EQ(machine.leaks(), Leaks{});
  return log;
}

TEST(DesktopOrder, IsTheSameInEveryRunWhateverTheThreadsSuffer) {
  const std::vector<std::string> calm = busy_desktop(Schedule::serial, 0);
  EXPECT_GT(calm.size(), 100u) << "40 posts, 40 moves and 10 timers among them";
  EXPECT_EQ(busy_desktop(Schedule::serial, 1), calm);
  EXPECT_EQ(busy_desktop(Schedule::serial, 2), calm);
}

TEST(DesktopOrder, ThreadsThatRunFreelyLoseNoMessage) {
  const std::vector<std::string> log = busy_desktop(Schedule::free, 3);
  EXPECT_EQ(std::count_if(log.begin(), log.end(), [](const std::string& line) { return line.ends_with(" 32769 1"); }),
            20);
  EXPECT_EQ(std::count_if(log.begin(), log.end(), [](const std::string& line) { return line.ends_with(" 32769 2"); }),
            20);
}

}  // namespace
}  // namespace sonivo::sim
