#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "platform/input.h"
#include "platform/sim/desktop_model.h"
#include "platform/sim/windows.h"

namespace sonivo::sim {

/// Mouse and keyboard of the notebook. Input passes the hooks, one after the other and each piece in its turn, and
/// then goes to the window under the pointer or to the one with the keyboard.
class SimInput final : public InputDevices {
 public:
  SimInput(DesktopModel& model, SimWindows& windows) : model_(model), windows_(windows) {}

  // InputDevices
  std::unique_ptr<Registration> hook_mouse(MouseHook hook) override;
  std::unique_ptr<Registration> hook_keyboard(KeyHook hook) override;
  bool pointer(Point& at) override;
  bool move_pointer(std::int32_t dx, std::int32_t dy) override;
  void set_cursor(Cursor cursor) override;
  bool track_leave(WindowHandle window) override;

  // For tests
  /// The user moves the mouse to a point, or presses or lets go a button there. A left button pressed on a window
  /// brings it to the foreground.
  void mouse(std::uint32_t message, Point at);
  /// The user presses or lets go a key.
  void key(std::uint32_t message, std::uint32_t key, bool alt = false);
  Cursor cursor() const { return cursor_; }
  std::size_t live_hooks() const;

 private:
  using AnyInput = std::variant<MouseInput, KeyInput>;
  using AnyHook = std::function<bool(const AnyInput&)>;
  struct Entry {
    std::uint64_t number;
    bool for_mouse;
    ThreadId owner;
    std::shared_ptr<const AnyHook> hook;
  };
  struct Pending {
    AnyInput input;
    std::uint64_t passed;  ///< number of the latest hook that it met
  };
  class Hooked;

  std::unique_ptr<Registration> install(bool for_mouse, AnyHook hook);
  void remove(std::uint64_t number);
  void enter(AnyInput input);
  void proceed();
  const Entry* next_hook(const Pending& pending) const;
  void ask(std::uint64_t number);
  void route(const MouseInput& input);
  void route(const KeyInput& input);
  bool drag(Point at);
  void tell_leave(WindowHandle under_pointer);

  DesktopModel& model_;
  SimWindows& windows_;
  std::atomic<Cursor> cursor_ = Cursor::arrow;
  std::vector<Entry> hooks_;  ///< in the order of their numbers
  std::deque<Pending> inputs_;
  std::optional<std::uint64_t> asked_;  ///< hook that shall look at the first input
  bool in_hook_ = false;                ///< a hook looks at the first input
  std::uint64_t latest_hook_ = 0;
};

}  // namespace sonivo::sim
