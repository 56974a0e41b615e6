#include "platform/sim/input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class InputTest : public DesktopBench {
 protected:
  /// A hook that notes its number and the point.
  std::unique_ptr<Registration> noting_hook(int number, bool swallows = false) {
    return input.hook_mouse([this, number, swallows](const MouseInput& mouse) {
      noted.push_back(number);
      points.push_back(mouse.at);
      return swallows;
    });
  }
  std::vector<int> noted;
  std::vector<Point> points;
};

// ---- Ways of the mouse

TEST_F(InputTest, TheMouseGoesToTheUppermostWindowThatShowsThere) {
  const WindowHandle lower = shown_window("lower", {0, 0, 100, 100});
  const WindowHandle upper = shown_window("upper", {50, 50, 150, 150});
  const WindowHandle hidden = shown_window("hidden", {0, 0, 500, 500});
  windows.hide(hidden);
  input.mouse(kWmMouseMove, {60, 70});
  input.mouse(kWmLButtonDown, {49, 50});
  input.mouse(kWmMouseMove, {300, 300});
  const auto messages = pump();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].window, upper);
  EXPECT_EQ(messages[0].message, kWmMouseMove);
  EXPECT_EQ(point_of(messages[0]), (Point{10, 20}));
  EXPECT_EQ(messages[1].window, lower);
  EXPECT_EQ(messages[1].message, kWmLButtonDown);
  EXPECT_EQ(point_of(messages[1]), (Point{49, 50}));
  Point at;
  EXPECT_TRUE(input.pointer(at));
  EXPECT_EQ(at, (Point{300, 300}));
}

TEST_F(InputTest, AWindowOfAnotherProgramKeepsItsInputAndAPressBringsItForward) {
  const WindowHandle own = shown_window("own", {0, 0, 10, 10});
  const WindowHandle editor = foreground.add_foreign("editor", {0, 0, 100, 100});
  foreground.activate(own);
  input.mouse(kWmMouseMove, {50, 50});
  EXPECT_EQ(foreground.window(), own);
  input.mouse(kWmLButtonDown, {50, 50});
  EXPECT_EQ(foreground.window(), editor);
  input.key(kWmKeyDown, kKeyEnter);
  EXPECT_THAT(pump(), IsEmpty());
}

TEST_F(InputTest, APackedPointKeepsItsSigns) {
  const Message message{.lParam = point_parameter({-2, 300})};
  EXPECT_EQ(point_of(message), (Point{-2, 300}));
  EXPECT_EQ(message.lParam, 0x012CFFFE);
}

TEST_F(InputTest, TheProgramMovesThePointerAsTheUserDoes) {
  shown_window("window", {0, 0, 100, 100});
  input.mouse(kWmMouseMove, {50, 50});
  pump();
  EXPECT_TRUE(input.move_pointer(0, 0));
  EXPECT_TRUE(input.move_pointer(5, -3));
  const auto messages = pump();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(point_of(messages[0]), (Point{50, 50}));
  EXPECT_EQ(point_of(messages[1]), (Point{55, 47}));
}

TEST_F(InputTest, LeavingIsToldOncePerAsking) {
  const WindowHandle handle = shown_window("window", {0, 0, 100, 100});
  input.mouse(kWmMouseMove, {50, 50});
  EXPECT_TRUE(input.track_leave(handle));
  EXPECT_FALSE(input.track_leave(WindowHandle{4}));
  input.mouse(kWmMouseMove, {99, 99});
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove, kWmMouseMove));
  input.mouse(kWmMouseMove, {100, 99});
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmMouseLeave, 0, 0}));
  input.mouse(kWmMouseMove, {50, 50});
  input.mouse(kWmMouseMove, {200, 50});
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove));
}

TEST_F(InputTest, AWindowHeldAtItsCaptionFollowsThePointerUntilTheButtonIsLetGo) {
  const WindowHandle handle = shown_window("window", {100, 100, 200, 150});
  input.mouse(kWmLButtonDown, {110, 105});
  pump();
  windows.default_procedure({handle, kWmNcLButtonDown, kHitCaption, 0});
  input.mouse(kWmMouseMove, {130, 95});
  input.mouse(kWmLButtonUp, {140, 95});
  input.mouse(kWmMouseMove, {150, 100});
  Rect place;
  windows.rect(handle, place);
  EXPECT_EQ(place, (Rect{130, 90, 230, 140}));
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove)) << "only the movement after the drag";
  std::vector<Rect> dragged;
  for (const WindowEvent& event : windows.history()) {
    if (event.change == WindowChange::dragged) dragged.push_back(event.place);
  }
  EXPECT_THAT(dragged, ElementsAre(Rect{120, 90, 220, 140}, Rect{130, 90, 230, 140}));
}

TEST_F(InputTest, ACaptionPressThatComesAfterTheReleaseDragsNothing) {
  const WindowHandle handle = shown_window("window", {100, 100, 200, 150});
  input.mouse(kWmLButtonDown, {110, 105});
  input.mouse(kWmLButtonUp, {110, 105});
  windows.default_procedure({handle, kWmNcLButtonDown, kHitCaption, 0});
  input.mouse(kWmMouseMove, {130, 125});
  Rect place;
  windows.rect(handle, place);
  EXPECT_EQ(place, (Rect{100, 100, 200, 150}));
}

TEST_F(InputTest, TheCursorIsTheOneThatWasSet) {
  EXPECT_EQ(input.cursor(), Cursor::arrow);
  input.set_cursor(Cursor::size_all);
  EXPECT_EQ(input.cursor(), Cursor::size_all);
}

// ---- Keys

TEST_F(InputTest, KeysGoToTheWindowWithTheKeyboard) {
  const WindowHandle handle = shown_window();
  input.key(kWmKeyDown, kKeyLeft);
  EXPECT_THAT(pump(), IsEmpty());
  foreground.set_window(handle);
  input.key(kWmKeyDown, kKeyLeft);
  input.key(kWmSysKeyDown, kKeyTab, true);
  EXPECT_THAT(pump(),
              ElementsAre(Message{handle, kWmKeyDown, kKeyLeft, 0}, Message{handle, kWmSysKeyDown, kKeyTab, 0}));
}

TEST_F(InputTest, AKeyHookSeesAllKeysAndMaySwallowThem) {
  const WindowHandle handle = shown_window();
  foreground.set_window(handle);
  std::vector<KeyInput> keys;
  const auto hook = input.hook_keyboard([&](const KeyInput& key) {
    keys.push_back(key);
    return key.key == kKeyEnter;
  });
  input.key(kWmKeyDown, kKeyEnter);
  input.key(kWmSysKeyDown, kKeyTab, true);
  input.mouse(kWmMouseMove, {500, 500});
  EXPECT_THAT(pump(), ElementsAre(Message{handle, kWmSysKeyDown, kKeyTab, 0}));
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(keys[0].message, kWmKeyDown);
  EXPECT_EQ(keys[0].key, kKeyEnter);
  EXPECT_FALSE(keys[0].alt);
  EXPECT_EQ(keys[1].message, kWmSysKeyDown);
  EXPECT_TRUE(keys[1].alt);
}

// ---- Hooks

TEST_F(InputTest, HooksAreAskedFromTheLatestToTheFirstBeforeAnyWindow) {
  shown_window();
  const auto first = noting_hook(1);
  const auto second = noting_hook(2);
  input.mouse(kWmMouseMove, {150, 160});
  EXPECT_THAT(noted, IsEmpty()) << "their thread doesn't wait for messages yet";
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove));
  EXPECT_THAT(noted, ElementsAre(2, 1));
  EXPECT_THAT(points, ElementsAre(Point{150, 160}, Point{150, 160}));
}

TEST_F(InputTest, ASwallowedInputGoesNoFurther) {
  shown_window();
  const auto first = noting_hook(1);
  const auto second = noting_hook(2, true);
  input.mouse(kWmMouseMove, {150, 160});
  input.mouse(kWmMouseMove, {151, 160});
  EXPECT_THAT(pump(), IsEmpty());
  EXPECT_THAT(noted, ElementsAre(2, 2));
}

TEST_F(InputTest, EachInputIsDoneBeforeTheNextBegins) {
  shown_window();
  const auto first = noting_hook(1);
  const auto second = noting_hook(2);
  input.mouse(kWmMouseMove, {150, 160});
  input.mouse(kWmMouseMove, {155, 160});
  pump();
  EXPECT_THAT(noted, ElementsAre(2, 1, 2, 1));
  EXPECT_THAT(points, ElementsAre(Point{150, 160}, Point{150, 160}, Point{155, 160}, Point{155, 160}));
}

TEST_F(InputTest, AHookSeesThePointerWhereItIsGoing) {
  Point at;
  const auto hook = input.hook_mouse([&](const MouseInput&) {
    input.pointer(at);
    return false;
  });
  input.mouse(kWmMouseMove, {7, 8});
  input.mouse(kWmMouseMove, {70, 80});
  Message message;
  desktop.peek_message(message);
  EXPECT_EQ(at, (Point{70, 80}));
}

TEST_F(InputTest, InputThatAHookMakesComesAfterTheOneItLooksAt) {
  shown_window();
  const auto hook = input.hook_mouse([&](const MouseInput& mouse) {
    points.push_back(mouse.at);
    if (points.size() == 1) input.move_pointer(5, 0);
    return points.size() == 1;
  });
  input.mouse(kWmMouseMove, {150, 160});
  const auto messages = pump();
  EXPECT_THAT(points, ElementsAre(Point{150, 160}, Point{155, 160}));
  ASSERT_EQ(messages.size(), 1u) << "the first one is swallowed";
  EXPECT_EQ(point_of(messages[0]), (Point{55, 60}));
}

TEST_F(InputTest, AHookMayEndItself) {
  shown_window();
  std::unique_ptr<Registration> hook;
  int calls = 0;
  hook = input.hook_mouse([&](const MouseInput&) {
    hook.reset();
    ++calls;
    return false;
  });
  input.mouse(kWmRButtonDown, {150, 160});
  input.mouse(kWmMouseMove, {150, 161});
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmRButtonDown, kWmMouseMove));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(machine.leaks().hooks, 0u);
}

TEST_F(InputTest, InputThatWaitsForAHookGoesOnWhenTheHookIsGone) {
  shown_window();
  auto hook = noting_hook(1);
  input.mouse(kWmMouseMove, {150, 160});
  hook.reset();
  hook = noting_hook(2);
  input.mouse(kWmMouseMove, {150, 161});
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove, kWmMouseMove));
  EXPECT_THAT(noted, ElementsAre(2));
}

TEST_F(InputTest, AHookIsCalledOnTheThreadThatInstalledIt) {
  shown_window();
  ThreadId called_on = ThreadId::none;
  ThreadId installed_on = ThreadId::none;
  const auto thread = machine.scheduler().start("hooks", [&] {
    installed_on = desktop.current_thread();
    const auto hook = input.hook_mouse([&](const MouseInput&) {
      called_on = desktop.current_thread();
      desktop.post_quit_message(0);
      return false;
    });
    for (Message message; desktop.get_message(message) == Got::message;) desktop.dispatch_message(message);
  });
  machine.run_for(1);
  input.mouse(kWmMouseMove, {150, 160});
  thread->join();
  EXPECT_EQ(called_on, installed_on);
  EXPECT_NE(called_on, ThreadId::none);
  EXPECT_THAT(pump_numbers(), ElementsAre(kWmMouseMove));
}

TEST_F(InputTest, EveryOperationFailsAsScripted) {
  const WindowHandle handle = shown_window();
  Point at;
  script.fail(Step::hook_mouse, 1);
  EXPECT_EQ(noting_hook(1), nullptr);
  script.fail(Step::hook_keyboard, 1);
  EXPECT_EQ(input.hook_keyboard([](const KeyInput&) { return true; }), nullptr);
  script.fail(Step::pointer_position, 1);
  EXPECT_FALSE(input.pointer(at));
  script.fail(Step::pointer_move, 1);
  EXPECT_FALSE(input.move_pointer(150, 150));
  script.fail(Step::cursor_set, 1);
  input.set_cursor(Cursor::size_all);
  EXPECT_EQ(input.cursor(), Cursor::arrow);
  script.fail(Step::leave_track, 1);
  EXPECT_FALSE(input.track_leave(handle));
  input.mouse(kWmMouseMove, {0, 0});
  EXPECT_THAT(pump(), IsEmpty());
  EXPECT_EQ(machine.leaks().hooks, 0u);
  noting_hook(1).reset();
  EXPECT_EQ(script.count(Step::hook_remove), 1u);
}

}  // namespace
}  // namespace sonivo::sim
