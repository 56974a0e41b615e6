#include "platform/sim/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kOwn = 0x8001;

using WindowsTest = DesktopBench;

std::vector<WindowChange> changes(const SimWindows& windows) {
  std::vector<WindowChange> changes;
  for (const WindowEvent& event : windows.history()) changes.push_back(event.change);
  return changes;
}

TEST_F(WindowsTest, ANewWindowIsHiddenWhereItWasPut) {
  const WindowHandle handle = window("panel", {10, 20, 298, 116});
  EXPECT_FALSE(windows.visible(handle));
  Rect place;
  EXPECT_TRUE(windows.rect(handle, place));
  EXPECT_EQ(place, (Rect{10, 20, 298, 116}));
  EXPECT_EQ(foreground.find("panel"), handle);
  EXPECT_EQ(foreground.thread_of(handle), desktop.current_thread());
  EXPECT_EQ(windows.create("none", {}, nullptr), WindowHandle::none);
}

TEST_F(WindowsTest, ShowingMovesAndHidingLeavesThePlace) {
  const WindowHandle handle = window();
  EXPECT_TRUE(windows.show_at(handle, {5, 6, 50, 60}, Stacking::topmost));
  EXPECT_TRUE(windows.visible(handle));
  machine.run_for(3);
  windows.hide(handle);
  windows.hide(handle);
  EXPECT_FALSE(windows.visible(handle));
  const auto history = windows.history();
  EXPECT_THAT(changes(windows), ElementsAre(WindowChange::created, WindowChange::shown, WindowChange::hidden));
  EXPECT_EQ(history[1].place, (Rect{5, 6, 50, 60}));
  EXPECT_EQ(history[2].place, (Rect{5, 6, 50, 60}));
  EXPECT_EQ(history[2].time, 1'000'003 * kMillisecond);
  EXPECT_EQ(history[2].window, handle);
}

TEST_F(WindowsTest, ShowingPaintsWhatComesIntoSightOrChangesItsSize) {
  const WindowHandle handle = shown_window("window", {0, 0, 10, 10});
  windows.show_at(handle, {5, 5, 15, 15}, Stacking::topmost);
  EXPECT_THAT(pump_numbers(), IsEmpty()) << "it only moved";
  windows.show_at(handle, {5, 5, 20, 15}, Stacking::topmost);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmPaint));
  windows.hide(handle);
  windows.show_at(handle, {5, 5, 20, 15}, Stacking::topmost);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmPaint));
}

TEST_F(WindowsTest, ATopmostShowRaisesAndAnotherLeavesTheOrder) {
  const WindowHandle lower = shown_window();
  const WindowHandle upper = shown_window();
  windows.show_at(lower, {}, Stacking::unchanged);
  EXPECT_EQ(foreground.top(), upper);
  windows.show_at(lower, {}, Stacking::topmost);
  EXPECT_EQ(foreground.top(), lower);
  EXPECT_EQ(foreground.next(lower), upper);
}

TEST_F(WindowsTest, DestroyingTellsTheProcedureAndTakesTimersAndMessagesAlong) {
  const WindowHandle handle = shown_window();
  windows.set_timer(handle, 1, 10);
  desktop.post_message(handle, kOwn, 0);
  seen.clear();
  EXPECT_TRUE(windows.destroy(handle));
  EXPECT_THAT(seen, ElementsAre(Message{handle, kWmDestroy, 0, 0}));
  machine.run_for(50);
  Message message;
  EXPECT_FALSE(desktop.peek_message(message));
  EXPECT_FALSE(windows.visible(handle));
  EXPECT_FALSE(windows.destroy(handle));
  EXPECT_EQ(foreground.find("window"), WindowHandle::none);
  EXPECT_EQ(changes(windows).back(), WindowChange::destroyed);
  EXPECT_EQ(machine.leaks(), Leaks{});
}

TEST_F(WindowsTest, AWindowMayDestroyItselfInsideItsProcedure) {
  const auto alive = std::make_shared<int>(1);
  const WindowHandle handle = windows.create("brief", {}, [this, alive](const Message& message) {
    if (message.message == kOwn) windows.destroy(message.window);
    return std::int64_t{*alive};
  });
  EXPECT_EQ(windows.send_message(handle, kOwn, 0), 1);
  EXPECT_EQ(machine.leaks().windows, 0u);
  EXPECT_EQ(alive.use_count(), 1) << "the procedure is gone with its window";
}

TEST_F(WindowsTest, OnlyItsOwnThreadDestroysSendsAndPaints) {
  const WindowHandle handle = window();
  const auto thread = machine.scheduler().start("other", [&] {
    EXPECT_FALSE(windows.destroy(handle));
    EXPECT_EQ(windows.send_message(handle, kWmQueryEndSession, 0), 0);
    EXPECT_EQ(desktop.painting().begin(handle), nullptr);
    EXPECT_TRUE(windows.show_at(handle, {}, Stacking::topmost));
    windows.hide(handle);
  });
  thread->join();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_EQ(windows.send_message(handle, kWmQueryEndSession, 0), 1);
}

TEST_F(WindowsTest, ByItselfAWindowClosesAndAgrees) {
  const WindowHandle closed = window("closed");
  const WindowHandle commanded = window("commanded");
  EXPECT_EQ(windows.send_message(closed, kWmQueryEndSession, 0), 1);
  EXPECT_EQ(windows.send_message(closed, kWmPowerBroadcast, kPowerSuspend), 1);
  EXPECT_EQ(windows.send_message(closed, kOwn, 0), 0);
  EXPECT_EQ(machine.leaks().windows, 2u);
  desktop.post_from_outside({.window = closed, .message = kWmClose});
  desktop.post_from_outside({.window = commanded, .message = kWmSysCommand, .wParam = kSysCommandClose});
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmClose, kWmDestroy, kWmSysCommand, kWmDestroy));
  EXPECT_EQ(machine.leaks().windows, 0u);
}

// ---- Timers

TEST_F(WindowsTest, ATimerComesEveryPeriodUntilItIsKilled) {
  const WindowHandle handle = window();
  std::vector<std::uint64_t> came_at;
  windows.set_timer(handle, 2, 1000);
  for (int i = 0; i < 2; ++i) {
    Message message;
    desktop.get_message(message);
    EXPECT_EQ(message, (Message{handle, kWmTimer, 2, 0}));
    came_at.push_back(now_ms());
  }
  EXPECT_THAT(came_at, ElementsAre(1000u, 2000u));
  EXPECT_TRUE(windows.kill_timer(handle, 2));
  EXPECT_FALSE(windows.kill_timer(handle, 2));
  machine.run_for(5000);
  EXPECT_THAT(pump(), IsEmpty());
  EXPECT_EQ(machine.leaks().timers, 0u);
}

TEST_F(WindowsTest, SettingATimerAgainStartsItAnew) {
  const WindowHandle handle = window();
  windows.set_timer(handle, 2, 100);
  machine.run_for(60);
  windows.set_timer(handle, 2, 100);
  EXPECT_EQ(machine.leaks().timers, 1u);
  Message message;
  desktop.get_message(message);
  EXPECT_EQ(now_ms(), 160u);
}

TEST_F(WindowsTest, ALateThreadGetsOneMessageOfATimer) {
  const WindowHandle handle = window();
  windows.set_timer(handle, 1, 10);
  windows.set_timer(handle, 2, 10);
  machine.run_for(100);
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmTimer, 1, 0}, Message{handle, kWmTimer, 2, 0}));
}

// ---- Screen, scripts

TEST_F(WindowsTest, TheScreenIsTheNotebooksUnlessSetOtherwise) {
  EXPECT_EQ(windows.work_area(), (Rect{0, 0, 1920, 1040}));
  EXPECT_EQ(windows.virtual_screen(), (Rect{0, 0, 1920, 1080}));
  windows.set_screen({0, 0, 800, 560}, {-800, 0, 800, 600});
  EXPECT_EQ(windows.work_area(), (Rect{0, 0, 800, 560}));
  EXPECT_EQ(windows.virtual_screen(), (Rect{-800, 0, 800, 600}));
}

TEST_F(WindowsTest, EveryOperationFailsAsScriptedAndDoesNothing) {
  const WindowHandle handle = shown_window();
  const Rect place{0, 0, 1, 1};
  windows.set_timer(handle, 1, 1'000'000);
  Rect got;
  const std::vector<std::pair<Step, std::function<bool()>>> operations = {
      {Step::window_create, [&] { return window() != WindowHandle::none; }},
      {Step::window_destroy, [&] { return windows.destroy(handle); }},
      {Step::window_send_message, [&] { return windows.send_message(handle, kWmQueryEndSession, 0) != 0; }},
      {Step::window_default_procedure,
       [&] {
         return windows.default_procedure({handle, kWmQueryEndSession, 0, 0}) != 0;
       }},
      {Step::window_show_at, [&] { return windows.show_at(handle, place, Stacking::topmost); }},
      {Step::window_visible, [&] { return windows.visible(handle); }},
      {Step::window_rect, [&] { return windows.rect(handle, got); }},
      {Step::timer_set, [&] { return windows.set_timer(handle, 2, 10); }},
      {Step::timer_kill, [&] { return windows.kill_timer(handle, 1); }},
      {Step::work_area, [&] { return windows.work_area() != Rect{}; }},
      {Step::virtual_screen, [&] { return windows.virtual_screen() != Rect{}; }},
      {Step::window_hide,
       [&] {
         windows.hide(handle);
         return !windows.visible(handle);
       }},
      {Step::window_invalidate,
       [&] {
         windows.invalidate(handle);
         return !pump().empty();
       }},
  };
  for (const auto& [step, operation] : operations) {
    script.fail(step, 1);
    EXPECT_FALSE(operation()) << to_string(step);
  }
  EXPECT_THAT(changes(windows), ElementsAre(WindowChange::created, WindowChange::shown));
  Leaks held;
  held.windows = 1;
  held.timers = 1;
  EXPECT_EQ(machine.leaks(), held);
}

TEST_F(WindowsTest, NothingHappensToAWindowThatIsNotThere) {
  const WindowHandle none{9};
  Rect place;
  windows.hide(none);
  windows.invalidate(none);
  EXPECT_FALSE(windows.show_at(none, {}, Stacking::topmost));
  EXPECT_FALSE(windows.rect(none, place));
  EXPECT_FALSE(windows.set_timer(none, 1, 10));
  EXPECT_EQ(windows.send_message(none, kOwn, 0), 0);
  EXPECT_THAT(windows.history(), IsEmpty());
}

}  // namespace
}  // namespace sonivo::sim
