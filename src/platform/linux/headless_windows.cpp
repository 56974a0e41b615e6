#include "platform/linux/headless_windows.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>

#include "platform/window_messages.h"

namespace sonivo::linux {
namespace {

constexpr std::uint32_t kShortestPeriodMs = 10;

}  // namespace

// ---- On the window's thread

WindowHandle HeadlessWindows::create(const std::string& class_name, const Rect& place, WindowProcedure procedure) {
  if (!procedure) return WindowHandle::none;
  auto kept = std::make_shared<const WindowProcedure>(std::move(procedure));
  const std::scoped_lock lock(state_->mutex);
  if (DesktopState::own_queue(state_) == nullptr) return WindowHandle::none;
  return state_->windows.add({.class_name = class_name,
                              .owner = DesktopState::current_thread(),
                              .place = place,
                              .procedure = std::move(kept)});
}

bool HeadlessWindows::destroy(WindowHandle window) {
  {
    const std::scoped_lock lock(state_->mutex);
    if (state_->own(window) == nullptr) return false;
  }
  state_->call({.window = window, .message = kWmDestroy});
  std::optional<Window> gone;  // goes without the mutex
  const std::scoped_lock lock(state_->mutex);
  gone = state_->remove(window);
  return true;
}

std::int64_t HeadlessWindows::send_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) {
  {
    const std::scoped_lock lock(state_->mutex);
    if (state_->own(window) == nullptr) return 0;
  }
  return state_->call({.window = window, .message = message, .wParam = wParam}).value_or(0);
}

// There is no pointer to drag by.
std::int64_t HeadlessWindows::default_procedure(const Message& message) {
  const bool closes = message.message == kWmClose ||
                      (message.message == kWmSysCommand && (message.wParam & 0xFFF0u) == kSysCommandClose);
  if (closes) destroy(message.window);
  return message.message == kWmQueryEndSession || message.message == kWmPowerBroadcast ? 1 : 0;
}

// ---- Any thread

void HeadlessWindows::hide(WindowHandle window) {
  const std::scoped_lock lock(state_->mutex);
  if (state_->ours(window) != nullptr) state_->windows.hide(window);
}

bool HeadlessWindows::show_at(WindowHandle window, const Rect& place, Stacking stacking) {
  const std::scoped_lock lock(state_->mutex);
  Window* const known = state_->ours(window);
  if (known == nullptr) return false;
  const bool resized = known->place.width() != place.width() || known->place.height() != place.height();
  known->invalid = known->invalid || resized;
  known->place = place;
  state_->windows.show(window);
  if (stacking == Stacking::topmost) state_->windows.raise(window);
  state_->ask_for_paint(window);
  return true;
}

bool HeadlessWindows::visible(WindowHandle window) {
  const std::scoped_lock lock(state_->mutex);
  const Window* const known = state_->windows.find(window);
  return known != nullptr && known->visible;
}

bool HeadlessWindows::rect(WindowHandle window, Rect& place) {
  const std::scoped_lock lock(state_->mutex);
  const Window* const known = state_->windows.find(window);
  if (known == nullptr) return false;
  place = known->place;
  return true;
}

void HeadlessWindows::invalidate(WindowHandle window) {
  const std::scoped_lock lock(state_->mutex);
  Window* const known = state_->ours(window);
  if (known == nullptr) return;
  known->invalid = true;
  state_->ask_for_paint(window);
}

bool HeadlessWindows::set_timer(WindowHandle window, std::uint64_t number, std::uint32_t period_ms) {
  const std::scoped_lock lock(state_->mutex);
  if (state_->ours(window) == nullptr) return false;
  state_->set_timer(window, number, std::chrono::milliseconds(std::max(period_ms, kShortestPeriodMs)));
  return true;
}

bool HeadlessWindows::kill_timer(WindowHandle window, std::uint64_t number) {
  const std::scoped_lock lock(state_->mutex);
  return state_->kill_timer(window, number);
}

}  // namespace sonivo::linux
