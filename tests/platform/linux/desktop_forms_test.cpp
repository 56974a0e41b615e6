// What every desktop does with messages, windows and timers: the simulated one and the one without a display.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/headless_desktop.h"
#include "platform/linux/threads.h"
#include "platform/sim/machine.h"
#include "support/pumped_windows.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kFirstOwn = 0x8001;
constexpr std::uint32_t kSecondOwn = 0x8002;

/// The simulated notebook: time passes while all wait.
class SimulatedForm {
 public:
  Desktop& desktop() { return machine_.desktop(); }
  Threads& threads() { return machine_.scheduler(); }
  Events& events() { return machine_.scheduler(); }
  std::uint64_t now_ms() { return machine_.scheduler().tick_ms(); }
  void pass(std::uint32_t ms) { machine_.run_for(ms); }
  void after(std::uint32_t ms, std::function<void()> action) { machine_.after(ms, std::move(action)); }
  void send_to_all(std::uint64_t wParam) {
    wParam == kPowerSuspend ? machine_.power().suspend() : machine_.power().resume();
  }

 private:
  sim::SimMachine machine_;
};

/// Real time, a few milliseconds of it.
class HeadlessForm {
 public:
  Desktop& desktop() { return desktop_; }
  Threads& threads() { return threads_; }
  Events& events() { return events_; }
  std::uint64_t now_ms() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
  }
  void pass(std::uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }
  void after(std::uint32_t ms, std::function<void()> action) {
    later_.emplace_back([ms, action = std::move(action)] {
      std::this_thread::sleep_for(std::chrono::milliseconds(ms));
      action();
    });
  }
  void send_to_all(std::uint64_t wParam) {
    const std::scoped_lock lock(desktop_.state()->mutex);
    desktop_.state()->send_to_all(kWmPowerBroadcast, wParam);
  }

 private:
  linux::HeadlessDesktop desktop_;
  linux::ProcessThreads threads_;
  linux::DescriptorEvents events_;
  std::vector<std::jthread> later_;
};

template <class Form>
class DesktopForms : public PumpedWindows {
 protected:
  Form form;
  Desktop& desktop = form.desktop();
  Windows& windows = desktop.windows();

 private:
  Desktop& pumped() override { return desktop; }
};
using Forms = testing::Types<SimulatedForm, HeadlessForm>;
TYPED_TEST_SUITE(DesktopForms, Forms);

TYPED_TEST(DesktopForms, BringPostedMessagesInOrder) {
  const WindowHandle one = this->window();
  const WindowHandle other = this->window();
  this->desktop.post_message(one, kFirstOwn, 1);
  this->desktop.post_message(other, kFirstOwn, 2);
  this->desktop.post_message(one, kSecondOwn, 3);
  this->desktop.post_message(WindowHandle{5}, kFirstOwn, 4);
  EXPECT_THAT(this->pump(), ElementsAre(Message{one, kFirstOwn, 1, 0}, Message{other, kFirstOwn, 2, 0},
                                        Message{one, kSecondOwn, 3, 0}));
}

TYPED_TEST(DesktopForms, WakeTheThreadThatWaitsForAMessage) {
  const WindowHandle handle = this->window();
  const std::uint64_t start = this->form.now_ms();
  this->form.after(20, [this, handle] { this->desktop.post_message(handle, kFirstOwn, 0); });
  Message message;
  EXPECT_EQ(this->desktop.get_message(message), Got::message);
  EXPECT_GE(this->form.now_ms() - start, 20u);
  EXPECT_EQ(message, (Message{handle, kFirstOwn, 0, 0}));
}

TYPED_TEST(DesktopForms, HaveAProcedureAnswerWhatIsDispatched) {
  const WindowHandle handle = this->windows.create(
      "answers", {}, [](const Message& message) { return static_cast<std::int64_t>(message.wParam) + 1; });
  EXPECT_EQ(this->desktop.dispatch_message({handle, kFirstOwn, 41, 0}), 42);
  EXPECT_EQ(this->desktop.dispatch_message({WindowHandle{5}, kFirstOwn, 41, 0}), 0);
}

TYPED_TEST(DesktopForms, BringAQuitBeforeAllThatIsQueuedAndOnce) {
  const WindowHandle handle = this->window();
  this->desktop.post_message(handle, kFirstOwn, 0);
  this->desktop.post_quit_message(7);
  Message message;
  EXPECT_EQ(this->desktop.get_message(message), Got::quit);
  EXPECT_EQ(message, (Message{WindowHandle::none, kWmQuit, 7, 0}));
  EXPECT_EQ(this->desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kFirstOwn);
  EXPECT_FALSE(this->desktop.peek_message(message));
}

TYPED_TEST(DesktopForms, GiveAThreadMessagesOfItsOwnOnceItHasAQueue) {
  const auto ready = this->form.events().create(Reset::manual);
  std::atomic<ThreadId> id = ThreadId::none;
  std::vector<std::uint64_t> got;
  const auto thread = this->form.threads().start("loop", [&] {
    id = this->desktop.current_thread();
    ready->set();
    for (Message message; this->desktop.get_message(message) == Got::message;) {
      got.push_back(message.wParam);
      if (message.wParam == 2) this->desktop.post_quit_message(0);
    }
  });
  EXPECT_FALSE(this->desktop.post_thread_message(ThreadId{1'000'000}, kFirstOwn, 0));
  const std::array<Event*, 1> started{ready.get()};
  this->form.events().wait_any(started);
  EXPECT_NE(id, this->desktop.current_thread());
  EXPECT_TRUE(this->desktop.post_thread_message(id, kFirstOwn, 1));
  EXPECT_TRUE(this->desktop.post_thread_message(id, kFirstOwn, 2));
  thread->join();
  EXPECT_THAT(got, ElementsAre(1u, 2u));
}

TYPED_TEST(DesktopForms, BringTimersAndPostedMessagesInTheOrderOfTheirTimes) {
  const WindowHandle handle = this->window();
  this->windows.set_timer(handle, 2, 20);
  this->desktop.post_message(handle, kFirstOwn, 0);
  this->form.pass(30);
  this->desktop.post_message(handle, kSecondOwn, 0);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kFirstOwn, kWmTimer, kSecondOwn));
}

TYPED_TEST(DesktopForms, PaintWhenNothingElseIsQueuedAndOncePerAsking) {
  const WindowHandle handle = this->window();
  this->windows.invalidate(handle);
  EXPECT_THAT(this->pump_numbers(), IsEmpty()) << "it doesn't show";
  this->windows.show_at(handle, {0, 0, 50, 50}, Stacking::topmost);
  this->windows.invalidate(handle);
  this->desktop.post_message(handle, kFirstOwn, 0);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kFirstOwn, kWmPaint));
  EXPECT_THAT(this->pump_numbers(), IsEmpty());
  this->form.after(5, [this, handle] { this->windows.invalidate(handle); });
  Message message;
  EXPECT_EQ(this->desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kWmPaint);
}

TYPED_TEST(DesktopForms, AnswerWhatTheMachineSendsInsideTheWaitBeforeAQuit) {
  const WindowHandle handle = this->window();
  this->form.after(5, [this, handle] {
    this->form.send_to_all(kPowerSuspend);
    this->desktop.post_message(handle, kFirstOwn, 0);
  });
  Message message;
  EXPECT_EQ(this->desktop.get_message(message), Got::message);
  EXPECT_EQ(message.message, kFirstOwn) << "a sent message isn't returned";
  EXPECT_THAT(this->seen, ElementsAre(Message{handle, kWmPowerBroadcast, kPowerSuspend, 0}));
  this->form.send_to_all(kPowerResumeAutomatic);
  this->desktop.post_quit_message(0);
  EXPECT_EQ(this->desktop.get_message(message), Got::quit);
  EXPECT_EQ(this->seen.size(), 2u);
}

TYPED_TEST(DesktopForms, SendToAllWindowsFromTheUppermostDown) {
  const WindowHandle lower = this->window("lower");
  const WindowHandle upper = this->window("upper");
  this->form.send_to_all(kPowerSuspend);
  EXPECT_THAT(this->pump(), ElementsAre(Message{upper, kWmPowerBroadcast, kPowerSuspend, 0},
                                        Message{lower, kWmPowerBroadcast, kPowerSuspend, 0}));
}

// ---- Waiting for events and messages at once

TYPED_TEST(DesktopForms, WaitForAnEventOrAMessageWhicheverComesFirst) {
  const auto event = this->form.events().create(Reset::automatic);
  const std::array<Event*, 1> events{event.get()};
  const WindowHandle handle = this->window();
  this->form.after(10, [&] { event->set(); });
  EXPECT_EQ(this->desktop.wait_any_or_message(events).index, 0u);
  this->form.after(10, [&] { this->desktop.post_message(handle, kFirstOwn, 0); });
  EXPECT_EQ(this->desktop.wait_any_or_message(events).index, 1u);
  EXPECT_EQ(this->desktop.wait_any_or_message(events).index, 1u) << "the message is still there";
  event->set();
  EXPECT_EQ(this->desktop.wait_any_or_message(events).index, 0u) << "an event goes before a message";
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kFirstOwn));
  const std::uint64_t start = this->form.now_ms();
  EXPECT_EQ(this->desktop.wait_any_or_message(events, 5).index, std::nullopt);
  EXPECT_GE(this->form.now_ms() - start, 5u);
}

TYPED_TEST(DesktopForms, EndAWaitForTimersSentMessagesQuitAndPaint) {
  const WindowHandle handle = this->window();
  this->windows.set_timer(handle, 1, 10);
  EXPECT_EQ(this->desktop.wait_any_or_message({}).index, 0u);
  this->windows.kill_timer(handle, 1);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmTimer));
  this->form.send_to_all(kPowerSuspend);
  EXPECT_EQ(this->desktop.wait_any_or_message({}).index, 0u);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmPowerBroadcast));
  this->windows.show_at(handle, {0, 0, 9, 9}, Stacking::topmost);
  EXPECT_EQ(this->desktop.wait_any_or_message({}).index, 0u);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmPaint));
  this->desktop.post_quit_message(0);
  EXPECT_EQ(this->desktop.wait_any_or_message({}).index, 0u);
}

TYPED_TEST(DesktopForms, DoNotEndAWaitForAPaintThatWasTakenBack) {
  const WindowHandle handle = this->window();
  this->windows.show_at(handle, {0, 0, 9, 9}, Stacking::topmost);
  this->pump();
  this->windows.invalidate(handle);
  this->windows.hide(handle);
  EXPECT_EQ(this->desktop.wait_any_or_message({}, 5).index, std::nullopt);
}

TYPED_TEST(DesktopForms, RefuseTooManyEventsAndMissingOnes) {
  const auto event = this->form.events().create(Reset::automatic);
  EXPECT_EQ(this->desktop.wait_any_or_message(std::vector<Event*>(64, event.get())).error, error::kInvalidParameter);
  EXPECT_EQ(this->desktop.wait_any_or_message(std::vector<Event*>(63, event.get()), 0).error, error::kNone);
  EXPECT_EQ(this->desktop.wait_any_or_message(std::vector<Event*>{nullptr}).error, error::kInvalidHandle);
}

// ---- Windows

TYPED_TEST(DesktopForms, MakeAWindowHiddenWhereItWasPut) {
  const WindowHandle handle = this->window("panel", {10, 20, 298, 116});
  EXPECT_FALSE(this->windows.visible(handle));
  Rect place;
  EXPECT_TRUE(this->windows.rect(handle, place));
  EXPECT_EQ(place, (Rect{10, 20, 298, 116}));
  EXPECT_EQ(this->desktop.foreground().find("panel"), handle);
  EXPECT_EQ(this->desktop.foreground().thread_of(handle), this->desktop.current_thread());
  EXPECT_EQ(this->windows.create("none", {}, nullptr), WindowHandle::none);
  EXPECT_FALSE(this->windows.show_at(WindowHandle{5}, {}, Stacking::topmost));
}

TYPED_TEST(DesktopForms, PaintWhatComesIntoSightOrChangesItsSize) {
  const WindowHandle handle = this->window();
  this->windows.show_at(handle, {0, 0, 10, 10}, Stacking::topmost);
  EXPECT_TRUE(this->windows.visible(handle));
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmPaint));
  this->windows.show_at(handle, {5, 5, 15, 15}, Stacking::topmost);
  EXPECT_THAT(this->pump_numbers(), IsEmpty()) << "it only moved";
  this->windows.show_at(handle, {5, 5, 20, 15}, Stacking::topmost);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmPaint));
  this->windows.hide(handle);
  EXPECT_FALSE(this->windows.visible(handle));
}

TYPED_TEST(DesktopForms, RaiseAtATopmostShowAlone) {
  const WindowHandle lower = this->window();
  const WindowHandle upper = this->window();
  this->windows.show_at(lower, {}, Stacking::unchanged);
  EXPECT_EQ(this->desktop.foreground().top(), upper);
  this->windows.show_at(lower, {}, Stacking::topmost);
  EXPECT_EQ(this->desktop.foreground().top(), lower);
  EXPECT_EQ(this->desktop.foreground().next(lower), upper);
  EXPECT_EQ(this->desktop.foreground().next(upper), WindowHandle::none);
}

TYPED_TEST(DesktopForms, TellADestroyedWindowAndTakeTimersAndMessagesAlong) {
  const WindowHandle handle = this->window();
  this->windows.set_timer(handle, 1, 10);
  this->desktop.post_message(handle, kFirstOwn, 0);
  EXPECT_TRUE(this->windows.destroy(handle));
  EXPECT_THAT(this->seen, ElementsAre(Message{handle, kWmDestroy, 0, 0}));
  this->form.pass(15);
  Message message;
  EXPECT_FALSE(this->desktop.peek_message(message));
  EXPECT_FALSE(this->windows.destroy(handle));
  EXPECT_EQ(this->desktop.foreground().find("window"), WindowHandle::none);
}

TYPED_TEST(DesktopForms, LetAWindowDestroyItselfInsideItsProcedure) {
  const auto alive = std::make_shared<int>(1);
  const WindowHandle handle = this->windows.create("brief", {}, [this, alive](const Message& message) {
    if (message.message == kFirstOwn) this->windows.destroy(message.window);
    return std::int64_t{*alive};
  });
  EXPECT_EQ(this->windows.send_message(handle, kFirstOwn, 0), 1);
  EXPECT_EQ(alive.use_count(), 1) << "the procedure is gone with its window";
}

TYPED_TEST(DesktopForms, LetOnlyItsOwnThreadDestroyAndSend) {
  const WindowHandle handle = this->window();
  this->form.threads()
      .start("other",
             [&] {
               EXPECT_FALSE(this->windows.destroy(handle));
               EXPECT_EQ(this->windows.send_message(handle, kWmQueryEndSession, 0), 0);
               EXPECT_EQ(this->desktop.painting().begin(handle), nullptr);
               EXPECT_TRUE(this->windows.show_at(handle, {}, Stacking::topmost));
               this->windows.hide(handle);
             })
      ->join();
  EXPECT_THAT(this->seen, IsEmpty());
  EXPECT_EQ(this->windows.send_message(handle, kWmQueryEndSession, 0), 1);
}

TYPED_TEST(DesktopForms, CloseAndAgreeByThemselves) {
  const WindowHandle handle = this->window();
  EXPECT_EQ(this->windows.send_message(handle, kWmQueryEndSession, 0), 1);
  EXPECT_EQ(this->windows.send_message(handle, kWmPowerBroadcast, kPowerSuspend), 1);
  EXPECT_EQ(this->windows.send_message(handle, kFirstOwn, 0), 0);
  this->desktop.post_message(handle, kWmSysCommand, kSysCommandClose);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmSysCommand, kWmDestroy));
  EXPECT_FALSE(this->windows.destroy(handle));
}

// ---- Timers

TYPED_TEST(DesktopForms, RepeatATimerUntilItIsKilled) {
  const WindowHandle handle = this->window();
  const std::uint64_t start = this->form.now_ms();
  EXPECT_TRUE(this->windows.set_timer(handle, 2, 20));
  for (const std::uint64_t due : {20u, 40u}) {
    Message message;
    EXPECT_EQ(this->desktop.get_message(message), Got::message);
    EXPECT_EQ(message, (Message{handle, kWmTimer, 2, 0}));
    EXPECT_GE(this->form.now_ms() - start + 1, due);  // the start may be late in its millisecond
  }
  EXPECT_TRUE(this->windows.kill_timer(handle, 2));
  EXPECT_FALSE(this->windows.kill_timer(handle, 2));
  this->form.pass(25);
  EXPECT_THAT(this->pump_numbers(), IsEmpty());
  EXPECT_FALSE(this->windows.set_timer(WindowHandle{5}, 1, 10));
}

TYPED_TEST(DesktopForms, GiveALateThreadOneMessageForManyPeriods) {
  const WindowHandle handle = this->window();
  this->windows.set_timer(handle, 1, 10);
  this->form.pass(55);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmTimer));
}

TYPED_TEST(DesktopForms, StillBringTheQueuedMessageOfAKilledTimer) {
  const WindowHandle handle = this->window();
  this->windows.set_timer(handle, 1, 10);
  this->form.pass(15);
  this->windows.kill_timer(handle, 1);
  EXPECT_THAT(this->pump_numbers(), ElementsAre(kWmTimer));
}

// ---- Without a display

TEST(HeadlessDesktop, HasNeitherScreenNorPointerNorForeground) {
  linux::HeadlessDesktop desktop;
  const WindowHandle handle = desktop.windows().create("window", {0, 0, 9, 9}, [](const Message&) { return 0; });
  desktop.windows().show_at(handle, {0, 0, 9, 9}, Stacking::topmost);
  EXPECT_EQ(desktop.windows().work_area(), Rect{});
  EXPECT_EQ(desktop.windows().virtual_screen(), Rect{});
  EXPECT_FALSE(desktop.foreground().set_window(handle));
  EXPECT_EQ(desktop.foreground().window(), WindowHandle::none);
  EXPECT_EQ(desktop.foreground().focus(), WindowHandle::none);
  EXPECT_EQ(desktop.painting().begin(handle), nullptr);
  EXPECT_EQ(desktop.input().hook_mouse([](const MouseInput&) { return false; }), nullptr);
  EXPECT_EQ(desktop.input().hook_keyboard([](const KeyInput&) { return false; }), nullptr);
  EXPECT_FALSE(desktop.input().move_pointer(0, 0));
}

TEST(HeadlessDesktop, AThreadTakesItsWindowsAndItsQueueAlong) {
  linux::HeadlessDesktop desktop;
  const auto alive = std::make_shared<int>(0);
  ThreadId id = ThreadId::none;
  std::optional<std::optional<std::int64_t>> answer;
  std::thread([&] {
    id = desktop.current_thread();
    const WindowHandle handle = desktop.windows().create("left", {}, [alive](const Message&) { return *alive; });
    desktop.windows().set_timer(handle, 1, 10);
    const std::scoped_lock lock(desktop.state()->mutex);
    desktop.state()->send({.window = handle, .message = kFirstOwn}, nullptr, [&](auto given) { answer = given; });
  }).join();
  EXPECT_EQ(desktop.foreground().find("left"), WindowHandle::none);
  EXPECT_FALSE(desktop.post_thread_message(id, kFirstOwn, 0));
  EXPECT_EQ(alive.use_count(), 1);
  ASSERT_TRUE(answer) << "who waits for the answer is told that none comes";
  EXPECT_FALSE(answer->has_value());
}

TEST(HeadlessDesktop, LosesNoMessageOfManyThreads) {
  linux::HeadlessDesktop desktop;
  std::array<std::uint64_t, 4> next{};
  bool in_order = true;
  int got = 0;
  const WindowHandle handle = desktop.windows().create("busy", {}, [&](const Message& message) {
    if (message.message == kFirstOwn) in_order = in_order && next[message.wParam % 4]++ == message.wParam / 4;
    if (++got == 4000) desktop.post_quit_message(0);
    return 0;
  });
  std::vector<std::jthread> posters;
  for (std::uint64_t poster = 0; poster < 4; ++poster) {
    posters.emplace_back([&, poster] {
      for (std::uint64_t i = 0; i < 1000; ++i) desktop.post_message(handle, kFirstOwn, i * 4 + poster);
    });
  }
  for (Message message; desktop.get_message(message) == Got::message;) desktop.dispatch_message(message);
  EXPECT_TRUE(in_order);
  EXPECT_THAT(next, ElementsAre(1000u, 1000u, 1000u, 1000u));
}

}  // namespace
}  // namespace sonivo::test
