#include "platform/window_table.h"

#include <algorithm>
#include <utility>

namespace sonivo {

WindowHandle WindowTable::add(Window window) {
  const WindowHandle handle{++latest_};
  windows_.emplace(handle, std::move(window));
  order_.push_back(handle);
  raise(handle);
  return handle;
}

std::optional<Window> WindowTable::remove(WindowHandle handle) {
  const auto found = windows_.find(handle);
  if (found == windows_.end()) return std::nullopt;
  hide(handle);
  Window window = std::move(found->second);
  windows_.erase(found);
  std::erase(order_, handle);
  return window;
}

Window* WindowTable::find(WindowHandle handle) {
  const auto found = windows_.find(handle);
  return found != windows_.end() ? &found->second : nullptr;
}

const Window* WindowTable::find(WindowHandle handle) const {
  const auto found = windows_.find(handle);
  return found != windows_.end() ? &found->second : nullptr;
}

template <class Wanted>
WindowHandle WindowTable::first(Wanted wanted) const {
  const auto found = std::find_if(order_.begin(), order_.end(),
                                  [&](WindowHandle handle) { return wanted(windows_.find(handle)->second); });
  return found != order_.end() ? *found : WindowHandle::none;
}

WindowHandle WindowTable::find_class(const std::string& class_name) const {
  return first([&](const Window& window) { return window.class_name == class_name; });
}

void WindowTable::raise(WindowHandle handle) {
  const Window* const window = find(handle);
  if (window == nullptr) return;
  std::erase(order_, handle);
  const auto place = window->ours() ? order_.begin()
                                    : std::find_if(order_.begin(), order_.end(),
                                                   [&](WindowHandle other) { return !find(other)->ours(); });
  order_.insert(place, handle);
}

WindowHandle WindowTable::visible_at(Point at) const {
  return first([&](const Window& window) { return window.visible && window.place.contains(at); });
}

WindowHandle WindowTable::to_paint(ThreadId owner) const {
  return first([&](const Window& window) { return window.owner == owner && window.visible && window.invalid; });
}

void WindowTable::show(WindowHandle handle) {
  Window* const window = find(handle);
  if (window == nullptr || window->visible) return;
  window->visible = true;
  window->invalid = true;
}

void WindowTable::hide(WindowHandle handle) {
  Window* const window = find(handle);
  if (window == nullptr) return;
  window->visible = false;
  if (focus_ == handle) focus_ = WindowHandle::none;
  if (foreground_ == handle) set_foreground(first([](const Window& other) { return other.visible; }));
}

void WindowTable::set_foreground(WindowHandle handle) {
  foreground_ = handle;
  focus_ = handle;
  raise(handle);
}

}  // namespace sonivo
