#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/geometry.h"
#include "platform/message.h"
#include "platform/registration.h"

namespace sonivo {

enum class Cursor { arrow, size_all };

/// A mouse message on its way to a window; the pointer is already there.
struct MouseInput {
  std::uint32_t message = 0;
  Point at;  ///< on the screen
};

/// A key message on its way to a window.
struct KeyInput {
  std::uint32_t message = 0;
  std::uint32_t key = 0;
  bool alt = false;
};

/// True swallows the input: neither earlier hooks nor any window see it.
using MouseHook = std::function<bool(const MouseInput& input)>;
using KeyHook = std::function<bool(const KeyInput& input)>;

/// Mouse and keyboard.
class InputDevices {
 public:
  virtual ~InputDevices() = default;

  /// Calls the hook with all input of all programs, the latest hook first, on the calling thread while that waits for
  /// messages. Null when refused. The registration may be destroyed on any thread and inside the hook itself; a call
  /// that is under way on another thread then still ends.
  virtual std::unique_ptr<Registration> hook_mouse(MouseHook hook) = 0;
  virtual std::unique_ptr<Registration> hook_keyboard(KeyHook hook) = 0;

  virtual bool pointer(Point& at) = 0;
  /// Acts as if the user had moved the mouse; a movement by nothing still counts as input.
  virtual bool move_pointer(std::int32_t dx, std::int32_t dy) = 0;
  virtual void set_cursor(Cursor cursor) = 0;
  /// Asks for one kWmMouseLeave, when the pointer is no longer over the window.
  virtual bool track_leave(WindowHandle window) = 0;
};

}  // namespace sonivo
