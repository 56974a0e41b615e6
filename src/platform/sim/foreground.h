#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>

#include "platform/foreground.h"
#include "platform/sim/desktop_model.h"

namespace sonivo::sim {

/// The windows of all programs. Any window may take the foreground.
class SimForeground final : public Foreground {
 public:
  explicit SimForeground(DesktopModel& model) : model_(model) {}

  // Foreground
  WindowHandle find(const std::string& class_name) override;
  WindowHandle top() override;
  WindowHandle next(WindowHandle window) override;
  ThreadId thread_of(WindowHandle window) override;
  WindowHandle window() override;
  bool set_window(WindowHandle window) override;
  bool allow() override;
  bool attach_input(ThreadId thread, ThreadId to, bool attach) override;
  WindowHandle focus() override;
  bool set_focus(WindowHandle window) override;

  // For tests
  /// Another program's window, above those of other programs so far; each has a thread of its own.
  WindowHandle add_foreign(const std::string& class_name, const Rect& place, bool visible = true);
  /// Another program's window goes.
  void remove_foreign(WindowHandle window);
  /// The user brings a window to the foreground.
  void activate(WindowHandle window);
  /// Threads whose input is still joined with another's.
  std::size_t attached_inputs() const;

 private:
  DesktopModel& model_;
  std::set<std::pair<ThreadId, ThreadId>> attached_;
  std::uint64_t latest_foreign_thread_ = 1'000'000;
};

}  // namespace sonivo::sim
