#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/linux/desktop_state.h"
#include "platform/windows.h"

namespace sonivo::linux {

/// Windows that no display shows. They have their place, order, messages and timers; the screen is empty, so that every
/// window lies beside it.
class HeadlessWindows final : public Windows {
 public:
  explicit HeadlessWindows(std::shared_ptr<DesktopState> state) : state_(std::move(state)) {}

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
  Rect work_area() override { return {}; }
  Rect virtual_screen() override { return {}; }

 private:
  const std::shared_ptr<DesktopState> state_;
};

}  // namespace sonivo::linux
