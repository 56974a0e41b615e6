#include "platform/sim/foreground.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

constexpr Rect kPlace{0, 0, 10, 10};

using ForegroundTest = DesktopBench;

TEST_F(ForegroundTest, TheProgramsWindowsLieAboveAllOthers) {
  const WindowHandle own = window();
  const WindowHandle tray = foreground.add_foreign("tray", kPlace);
  const WindowHandle editor = foreground.add_foreign("editor", kPlace, false);
  EXPECT_EQ(foreground.top(), own);
  EXPECT_EQ(foreground.next(own), editor);
  EXPECT_EQ(foreground.next(editor), tray);
  EXPECT_EQ(foreground.next(tray), WindowHandle::none);
  EXPECT_TRUE(windows.visible(tray));
  EXPECT_FALSE(windows.visible(editor));
  foreground.set_window(tray);
  EXPECT_EQ(foreground.next(own), tray) << "the foreground window rises among its like";
}

TEST_F(ForegroundTest, WindowsAreFoundByClass) {
  const WindowHandle tray = foreground.add_foreign("tray", kPlace);
  EXPECT_EQ(foreground.find("tray"), tray);
  foreground.remove_foreign(tray);
  EXPECT_EQ(foreground.find("tray"), WindowHandle::none);
}

TEST_F(ForegroundTest, TheForegroundBringsTheKeyboardAndIsHandedOnByAWindowThatHides) {
  EXPECT_EQ(foreground.window(), WindowHandle::none);
  const WindowHandle editor = foreground.add_foreign("editor", kPlace);
  foreground.activate(editor);
  EXPECT_EQ(foreground.window(), editor);
  const WindowHandle own = shown_window();
  EXPECT_EQ(foreground.window(), editor) << "showing doesn't take it";
  EXPECT_TRUE(foreground.set_window(own));
  EXPECT_EQ(foreground.window(), own);
  EXPECT_EQ(foreground.focus(), own);
  windows.hide(own);
  EXPECT_EQ(foreground.window(), editor);
  EXPECT_EQ(foreground.focus(), editor);
  foreground.remove_foreign(editor);
  EXPECT_EQ(foreground.window(), WindowHandle::none);
  EXPECT_FALSE(foreground.set_window(editor));
}

TEST_F(ForegroundTest, TheKeyboardCanBeGivenAlone) {
  const WindowHandle own = shown_window();
  const WindowHandle editor = foreground.add_foreign("editor", kPlace);
  foreground.activate(editor);
  EXPECT_TRUE(foreground.set_focus(own));
  EXPECT_EQ(foreground.focus(), own);
  EXPECT_EQ(foreground.window(), editor);
  EXPECT_FALSE(foreground.set_focus(WindowHandle{4}));
  windows.hide(own);
  EXPECT_EQ(foreground.focus(), WindowHandle::none);
  EXPECT_EQ(foreground.window(), editor);
}

TEST_F(ForegroundTest, JoinedInputsAreCountedUntilTheyPart) {
  const ThreadId own = foreground.thread_of(window());
  const ThreadId other = foreground.thread_of(foreground.add_foreign("editor", kPlace));
  EXPECT_EQ(own, desktop.current_thread());
  EXPECT_NE(own, other);
  EXPECT_EQ(foreground.thread_of(WindowHandle{4}), ThreadId::none);
  EXPECT_FALSE(foreground.attach_input(own, own, true));
  EXPECT_FALSE(foreground.attach_input(own, ThreadId::none, true));
  EXPECT_FALSE(foreground.attach_input(own, other, false)) << "not joined";
  EXPECT_TRUE(foreground.attach_input(own, other, true));
  EXPECT_EQ(machine.leaks().attached_inputs, 1u);
  EXPECT_TRUE(foreground.allow());
  EXPECT_TRUE(foreground.attach_input(own, other, false));
  EXPECT_EQ(machine.leaks().attached_inputs, 0u);
}

TEST_F(ForegroundTest, EveryOperationFailsAsScripted) {
  const WindowHandle own = shown_window();
  const WindowHandle editor = foreground.add_foreign("editor", kPlace);
  const ThreadId thread = foreground.thread_of(own);
  const ThreadId other = foreground.thread_of(editor);
  foreground.activate(editor);
  const std::vector<std::pair<Step, std::function<bool()>>> operations = {
      {Step::foreground_find, [&] { return foreground.find("editor") != WindowHandle::none; }},
      {Step::foreground_top, [&] { return foreground.top() != WindowHandle::none; }},
      {Step::foreground_next, [&] { return foreground.next(own) != WindowHandle::none; }},
      {Step::foreground_thread_of, [&] { return foreground.thread_of(own) != ThreadId::none; }},
      {Step::foreground_window, [&] { return foreground.window() != WindowHandle::none; }},
      {Step::foreground_set_window, [&] { return foreground.set_window(own); }},
      {Step::foreground_allow, [&] { return foreground.allow(); }},
      {Step::foreground_attach_input, [&] { return foreground.attach_input(thread, other, true); }},
      {Step::focus_window, [&] { return foreground.focus() != WindowHandle::none; }},
      {Step::focus_set, [&] { return foreground.set_focus(own); }},
  };
  for (const auto& [step, operation] : operations) {
    script.fail(step, 1);
    EXPECT_FALSE(operation()) << to_string(step);
  }
  EXPECT_EQ(foreground.window(), editor);
  EXPECT_EQ(foreground.focus(), editor);
  EXPECT_EQ(machine.leaks().attached_inputs, 0u);
}

}  // namespace
}  // namespace sonivo::sim
