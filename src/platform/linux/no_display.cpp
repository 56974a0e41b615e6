#include "platform/linux/no_display.h"

#include <algorithm>
#include <mutex>

namespace sonivo::linux {

WindowHandle NoForeground::find(const std::string& class_name) {
  const std::scoped_lock lock(state_->mutex);
  return state_->windows.find_class(class_name);
}

WindowHandle NoForeground::top() {
  const std::scoped_lock lock(state_->mutex);
  const auto& order = state_->windows.order();
  return order.empty() ? WindowHandle::none : order.front();
}

WindowHandle NoForeground::next(WindowHandle window) {
  const std::scoped_lock lock(state_->mutex);
  const auto& order = state_->windows.order();
  const auto found = std::find(order.begin(), order.end(), window);
  return found == order.end() || found + 1 == order.end() ? WindowHandle::none : found[1];
}

ThreadId NoForeground::thread_of(WindowHandle window) {
  const std::scoped_lock lock(state_->mutex);
  const Window* const known = state_->windows.find(window);
  return known != nullptr ? known->owner : ThreadId::none;
}

}  // namespace sonivo::linux
