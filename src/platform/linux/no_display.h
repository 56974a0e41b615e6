#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/foreground.h"
#include "platform/input.h"
#include "platform/linux/desktop_state.h"
#include "platform/painting.h"

namespace sonivo::linux {

// What a machine without a display answers of the rest of a desktop.

/// The program's own windows are all there are; none of them ever has the foreground or the keyboard.
class NoForeground final : public Foreground {
 public:
  explicit NoForeground(std::shared_ptr<DesktopState> state) : state_(std::move(state)) {}

  WindowHandle find(const std::string& class_name) override;
  WindowHandle top() override;
  WindowHandle next(WindowHandle window) override;
  ThreadId thread_of(WindowHandle window) override;
  WindowHandle window() override { return WindowHandle::none; }
  bool set_window(WindowHandle) override { return false; }
  bool allow() override { return false; }
  bool attach_input(ThreadId, ThreadId, bool) override { return false; }
  WindowHandle focus() override { return WindowHandle::none; }
  bool set_focus(WindowHandle) override { return false; }

 private:
  const std::shared_ptr<DesktopState> state_;
};

/// No picture can be read, no window painted.
class NoPainting final : public Painting {
 public:
  std::unique_ptr<Bitmap> load_bitmap(const std::filesystem::path&) override { return nullptr; }
  std::unique_ptr<Painter> begin(WindowHandle) override { return nullptr; }
};

/// Neither mouse nor keyboard: hooks are refused.
class NoInput final : public InputDevices {
 public:
  std::unique_ptr<Registration> hook_mouse(MouseHook) override { return nullptr; }
  std::unique_ptr<Registration> hook_keyboard(KeyHook) override { return nullptr; }
  bool pointer(Point&) override { return false; }
  bool move_pointer(std::int32_t, std::int32_t) override { return false; }
  void set_cursor(Cursor) override {}
  bool track_leave(WindowHandle) override { return false; }
};

}  // namespace sonivo::linux
