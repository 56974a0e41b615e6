#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/sim/desktop_model.h"
#include "platform/windows.h"

namespace sonivo::sim {

enum class WindowChange { created, shown, hidden, dragged, destroyed };

struct WindowEvent {
  Time time = 0;
  WindowHandle window = WindowHandle::none;
  WindowChange change = WindowChange::created;
  Rect place;  ///< after the change
};

/// The program's windows, on a screen of 1920 x 1080 with a bar of 40 at the bottom unless set otherwise.
class SimWindows final : public Windows {
 public:
  explicit SimWindows(DesktopModel& model) : model_(model) {}

  // Windows
  WindowHandle create(const std::string& class_name, const Rect& place, WindowProcedure procedure) override;
  bool destroy(WindowHandle window) override;
  std::int64_t send_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) override;
  std::int64_t default_procedure(const Message& message) override;
  void hide(WindowHandle window) override;
  bool show_at(WindowHandle window, const Rect& place, Stacking stacking) override;
  bool visible(WindowHandle window) override;
  bool rect(WindowHandle window, Rect& place) override;
  void invalidate(WindowHandle window) override;
  bool set_timer(WindowHandle window, std::uint64_t number, std::uint32_t period_ms) override;
  bool kill_timer(WindowHandle window, std::uint64_t number) override;
  Rect work_area() override;
  Rect virtual_screen() override;

  // For tests
  void set_screen(const Rect& work_area, const Rect& virtual_screen);
  /// What happened to the program's windows, in order.
  std::vector<WindowEvent> history() const;
  std::size_t live_windows() const;
  std::size_t live_timers() const;

  /// For the models, with the mutex held.
  void record(WindowHandle window, WindowChange change);

 private:
  using TimerKey = std::pair<WindowHandle, std::uint64_t>;
  struct Timer {
    Time period = 0;
    TimerId next = 0;
  };
  Window* ours(WindowHandle window);
  void begin_drag(WindowHandle window);
  void arm(const TimerKey& key);
  void expire(const TimerKey& key);

  DesktopModel& model_;
  std::map<TimerKey, Timer> timers_;
  std::vector<WindowEvent> history_;
  Rect work_area_{0, 0, 1920, 1040};
  Rect virtual_screen_{0, 0, 1920, 1080};
};

}  // namespace sonivo::sim
