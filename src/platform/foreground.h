#pragma once

#include <cstdint>
#include <string>

#include "platform/message.h"

namespace sonivo {

/// The windows of all programs: their order, the one in the foreground and the one with the keyboard. Any thread.
class Foreground {
 public:
  virtual ~Foreground() = default;

  /// By class name; none when there is no such window.
  virtual WindowHandle find(const std::string& class_name) = 0;
  /// The uppermost window, shown or not.
  virtual WindowHandle top() = 0;
  /// The one below it; none at the end.
  virtual WindowHandle next(WindowHandle window) = 0;
  virtual ThreadId thread_of(WindowHandle window) = 0;

  /// none while no window has the foreground.
  virtual WindowHandle window() = 0;
  /// Brings a window to the foreground and gives it the keyboard; false when the machine refuses.
  virtual bool set_window(WindowHandle window) = 0;
  /// Lets this program take the foreground when others ask for it.
  virtual bool allow() = 0;
  /// Joins, or parts again, the input of one thread with that of another, so that both may set foreground and focus.
  virtual bool attach_input(ThreadId thread, ThreadId to, bool attach) = 0;

  /// The window that gets the keys.
  virtual WindowHandle focus() = 0;
  virtual bool set_focus(WindowHandle window) = 0;
};

}  // namespace sonivo
