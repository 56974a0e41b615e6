#pragma once

#include <cstdint>
#include <string>

#include "platform/geometry.h"
#include "platform/message.h"

namespace sonivo {

/// What showing a window does to the order of windows.
enum class Stacking { topmost, unchanged };

/// The program's own windows: borderless, above those of other programs, in no task list. Rectangles are on the screen.
/// Where a window is named that isn't there, nothing happens and the answer is false, 0 or WindowHandle::none.
class Windows {
 public:
  virtual ~Windows() = default;

  // On the thread that owns the window, which is the one that creates it.
  /// A hidden window, told apart by its class name; none on failure. `procedure` is called by this thread only.
  virtual WindowHandle create(const std::string& class_name, const Rect& place, WindowProcedure procedure) = 0;
  /// Sends kWmDestroy; then the window is gone, with its timers and messages.
  virtual bool destroy(WindowHandle window) = 0;
  /// Has the procedure answer at once.
  virtual std::int64_t send_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) = 0;
  /// What windows do with messages by themselves: closing destroys, the caption drags, a query is agreed to.
  virtual std::int64_t default_procedure(const Message& message) = 0;

  // Any thread.
  virtual void hide(WindowHandle window) = 0;
  /// Moves, sizes and shows, without making it the foreground window.
  virtual bool show_at(WindowHandle window, const Rect& place, Stacking stacking) = 0;
  /// Whether it shows; for windows of other programs too.
  virtual bool visible(WindowHandle window) = 0;
  /// Where it lies, shown or not; for windows of other programs too.
  virtual bool rect(WindowHandle window, Rect& place) = 0;
  /// Asks for one kWmPaint, now or once the window shows.
  virtual void invalidate(WindowHandle window) = 0;
  /// Sends kWmTimer with this number every `period_ms`, until killed. Setting it again starts it anew.
  virtual bool set_timer(WindowHandle window, std::uint64_t number, std::uint32_t period_ms) = 0;
  /// A message of it that is queued already still comes.
  virtual bool kill_timer(WindowHandle window, std::uint64_t number) = 0;

  /// The primary screen without its bars.
  virtual Rect work_area() = 0;
  /// What encloses all screens.
  virtual Rect virtual_screen() = 0;
};

}  // namespace sonivo
