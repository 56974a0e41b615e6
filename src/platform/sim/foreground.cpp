#include "platform/sim/foreground.h"

#include <algorithm>

namespace sonivo::sim {

WindowHandle SimForeground::find(const std::string& class_name) {
  if (model_.script.enter(Step::foreground_find)) return WindowHandle::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  return model_.windows.find_class(class_name);
}

WindowHandle SimForeground::top() {
  if (model_.script.enter(Step::foreground_top)) return WindowHandle::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  const auto& order = model_.windows.order();
  return order.empty() ? WindowHandle::none : order.front();
}

WindowHandle SimForeground::next(WindowHandle window) {
  if (model_.script.enter(Step::foreground_next)) return WindowHandle::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  const auto& order = model_.windows.order();
  const auto found = std::find(order.begin(), order.end(), window);
  return found == order.end() || found + 1 == order.end() ? WindowHandle::none : found[1];
}

ThreadId SimForeground::thread_of(WindowHandle window) {
  if (model_.script.enter(Step::foreground_thread_of)) return ThreadId::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = model_.windows.find(window);
  return known != nullptr ? known->owner : ThreadId::none;
}

WindowHandle SimForeground::window() {
  if (model_.script.enter(Step::foreground_window)) return WindowHandle::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  return model_.windows.foreground();
}

bool SimForeground::set_window(WindowHandle window) {
  if (model_.script.enter(Step::foreground_set_window)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  if (model_.windows.find(window) == nullptr) return false;
  model_.windows.set_foreground(window);
  return true;
}

bool SimForeground::allow() { return !model_.script.enter(Step::foreground_allow); }

bool SimForeground::attach_input(ThreadId thread, ThreadId to, bool attach) {
  if (model_.script.enter(Step::foreground_attach_input)) return false;
  if (thread == ThreadId::none || to == ThreadId::none || thread == to) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  if (!attach) return attached_.erase({thread, to}) != 0;
  attached_.insert({thread, to});
  return true;
}

WindowHandle SimForeground::focus() {
  if (model_.script.enter(Step::focus_window)) return WindowHandle::none;
  std::scoped_lock lock(model_.scheduler.mutex());
  return model_.windows.focus();
}

bool SimForeground::set_focus(WindowHandle window) {
  if (model_.script.enter(Step::focus_set)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  if (model_.windows.find(window) == nullptr) return false;
  model_.windows.set_focus(window);
  return true;
}

WindowHandle SimForeground::add_foreign(const std::string& class_name, const Rect& place, bool visible) {
  std::scoped_lock lock(model_.scheduler.mutex());
  return model_.windows.add(
      {.class_name = class_name, .owner = ThreadId{++latest_foreign_thread_}, .place = place, .visible = visible});
}

void SimForeground::remove_foreign(WindowHandle window) {
  std::scoped_lock lock(model_.scheduler.mutex());
  model_.windows.remove(window);
}

void SimForeground::activate(WindowHandle window) {
  std::scoped_lock lock(model_.scheduler.mutex());
  model_.windows.set_foreground(window);
}

std::size_t SimForeground::attached_inputs() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  return attached_.size();
}

}  // namespace sonivo::sim
