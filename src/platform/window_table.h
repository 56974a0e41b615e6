#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/geometry.h"
#include "platform/message.h"

namespace sonivo {

struct Window {
  std::string class_name;
  ThreadId owner = ThreadId::none;
  Rect place;
  std::shared_ptr<const WindowProcedure> procedure = nullptr;  ///< none: another program's window
  bool visible = false;
  bool invalid = false;       ///< wants to be painted
  bool tracks_leave = false;  ///< wants to be told that the pointer left

  bool ours() const { return procedure != nullptr; }
};

/// The windows of all programs, the program's own above all others. Guarded by its owner's mutex.
class WindowTable {
 public:
  WindowHandle add(Window window);
  /// Takes a window out, for its procedure to be destroyed without the mutex.
  std::optional<Window> remove(WindowHandle handle);
  /// Null when there is none.
  Window* find(WindowHandle handle);
  const Window* find(WindowHandle handle) const;
  WindowHandle find_class(const std::string& class_name) const;

  /// From the uppermost down.
  const std::vector<WindowHandle>& order() const { return order_; }
  void raise(WindowHandle handle);
  /// The uppermost one that shows there.
  WindowHandle visible_at(Point at) const;
  /// The uppermost one of a thread that shows and wants to be painted.
  WindowHandle to_paint(ThreadId owner) const;

  void show(WindowHandle handle);
  /// Gives the foreground on to the next one that shows.
  void hide(WindowHandle handle);
  void set_foreground(WindowHandle handle);
  void set_focus(WindowHandle handle) { focus_ = handle; }
  WindowHandle foreground() const { return foreground_; }
  WindowHandle focus() const { return focus_; }

 private:
  template <class Wanted>
  WindowHandle first(Wanted wanted) const;

  std::map<WindowHandle, Window> windows_;
  std::vector<WindowHandle> order_;
  std::uint64_t latest_ = 0x10000;  // clear of the small numbers that tests make up
  WindowHandle foreground_ = WindowHandle::none;
  WindowHandle focus_ = WindowHandle::none;
};

}  // namespace sonivo
