#include "platform/sim/windows.h"

#include <algorithm>

#include "platform/window_messages.h"

namespace sonivo::sim {
namespace {

constexpr std::uint32_t kShortestPeriodMs = 10;

}  // namespace

// ---- On the window's thread

WindowHandle SimWindows::create(const std::string& class_name, const Rect& place, WindowProcedure procedure) {
  if (model_.script.enter(Step::window_create) || !procedure) return WindowHandle::none;
  auto kept = std::make_shared<const WindowProcedure>(std::move(procedure));
  std::scoped_lock lock(model_.scheduler.mutex());
  const WindowHandle window = model_.windows.add(
      {.class_name = class_name, .owner = model_.current_thread(), .place = place, .procedure = std::move(kept)});
  record(window, WindowChange::created);
  return window;
}

bool SimWindows::destroy(WindowHandle window) {
  if (model_.script.enter(Step::window_destroy)) return false;
  {
    std::scoped_lock lock(model_.scheduler.mutex());
    const Window* const known = ours(window);
    if (known == nullptr || known->owner != model_.current_thread()) return false;
  }
  model_.call({.window = window, .message = kWmDestroy});
  std::optional<Window> gone;  // goes without the mutex
  std::scoped_lock lock(model_.scheduler.mutex());
  if (ours(window) == nullptr) return true;
  for (auto timer = timers_.lower_bound({window, 0}); timer != timers_.end() && timer->first.first == window;) {
    model_.scheduler.cancel(timer->second.next);
    timer = timers_.erase(timer);
  }
  record(window, WindowChange::destroyed);
  gone = model_.windows.remove(window);
  model_.queues.drop(gone->owner, window);
  return true;
}

std::int64_t SimWindows::send_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) {
  if (model_.script.enter(Step::window_send_message)) return 0;
  {
    std::scoped_lock lock(model_.scheduler.mutex());
    const Window* const known = ours(window);
    if (known == nullptr || known->owner != model_.current_thread()) return 0;
  }
  return model_.call({.window = window, .message = message, .wParam = wParam}).value_or(0);
}

std::int64_t SimWindows::default_procedure(const Message& message) {
  if (model_.script.enter(Step::window_default_procedure)) return 0;
  const bool closes = message.message == kWmClose ||
                      (message.message == kWmSysCommand && (message.wParam & 0xFFF0u) == kSysCommandClose);
  if (closes) destroy(message.window);
  if (message.message == kWmNcLButtonDown && message.wParam == kHitCaption) begin_drag(message.window);
  return message.message == kWmQueryEndSession || message.message == kWmPowerBroadcast ? 1 : 0;
}

void SimWindows::begin_drag(WindowHandle window) {
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = ours(window);
  if (known == nullptr || !model_.left_down) return;
  model_.dragged = window;
  model_.grip = {model_.pointer.x - known->place.left, model_.pointer.y - known->place.top};
}

// ---- Any thread

void SimWindows::hide(WindowHandle window) {
  if (model_.script.enter(Step::window_hide)) return;
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = ours(window);
  if (known == nullptr || !known->visible) return;
  model_.windows.hide(window);
  record(window, WindowChange::hidden);
}

bool SimWindows::show_at(WindowHandle window, const Rect& place, Stacking stacking) {
  if (model_.script.enter(Step::window_show_at)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  Window* const known = ours(window);
  if (known == nullptr) return false;
  const bool resized = known->place.width() != place.width() || known->place.height() != place.height();
  known->invalid = known->invalid || resized;
  known->place = place;
  model_.windows.show(window);
  if (stacking == Stacking::topmost) model_.windows.raise(window);
  model_.ask_for_paint(window);
  record(window, WindowChange::shown);
  return true;
}

bool SimWindows::visible(WindowHandle window) {
  if (model_.script.enter(Step::window_visible)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = model_.windows.find(window);
  return known != nullptr && known->visible;
}

bool SimWindows::rect(WindowHandle window, Rect& place) {
  if (model_.script.enter(Step::window_rect)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = model_.windows.find(window);
  if (known == nullptr) return false;
  place = known->place;
  return true;
}

void SimWindows::invalidate(WindowHandle window) {
  if (model_.script.enter(Step::window_invalidate)) return;
  std::scoped_lock lock(model_.scheduler.mutex());
  Window* const known = ours(window);
  if (known == nullptr) return;
  known->invalid = true;
  model_.ask_for_paint(window);
}

// ---- Timers

bool SimWindows::set_timer(WindowHandle window, std::uint64_t number, std::uint32_t period_ms) {
  if (model_.script.enter(Step::timer_set)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  if (ours(window) == nullptr) return false;
  Timer& timer = timers_[{window, number}];
  model_.scheduler.cancel(timer.next);
  timer.period = std::max(period_ms, kShortestPeriodMs) * kMillisecond;
  arm({window, number});
  return true;
}

bool SimWindows::kill_timer(WindowHandle window, std::uint64_t number) {
  if (model_.script.enter(Step::timer_kill)) return false;
  std::scoped_lock lock(model_.scheduler.mutex());
  const auto timer = timers_.find({window, number});
  if (timer == timers_.end()) return false;
  model_.scheduler.cancel(timer->second.next);
  timers_.erase(timer);
  return true;
}

void SimWindows::arm(const TimerKey& key) {
  Timer& timer = timers_.at(key);
  timer.next = model_.scheduler.at(model_.scheduler.now() + timer.period, [this, key] { expire(key); });
}

// A thread that is late gets one message, not one for each period.
void SimWindows::expire(const TimerKey& key) {
  arm(key);
  const Message message{.window = key.first, .message = kWmTimer, .wParam = key.second};
  if (!model_.queues.queued(ours(key.first)->owner, message)) model_.post(message);
}

// ---- Screen

Rect SimWindows::work_area() {
  if (model_.script.enter(Step::work_area)) return {};
  std::scoped_lock lock(model_.scheduler.mutex());
  return work_area_;
}

Rect SimWindows::virtual_screen() {
  if (model_.script.enter(Step::virtual_screen)) return {};
  std::scoped_lock lock(model_.scheduler.mutex());
  return virtual_screen_;
}

void SimWindows::set_screen(const Rect& work_area, const Rect& virtual_screen) {
  std::scoped_lock lock(model_.scheduler.mutex());
  work_area_ = work_area;
  virtual_screen_ = virtual_screen;
}

// ---- Observations

std::vector<WindowEvent> SimWindows::history() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  return history_;
}

std::size_t SimWindows::live_windows() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  const auto& order = model_.windows.order();
  return static_cast<std::size_t>(std::count_if(
      order.begin(), order.end(), [&](WindowHandle window) { return model_.windows.find(window)->ours(); }));
}

std::size_t SimWindows::live_timers() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  return timers_.size();
}

void SimWindows::record(WindowHandle window, WindowChange change) {
  history_.push_back({model_.scheduler.now(), window, change, model_.windows.find(window)->place});
}

Window* SimWindows::ours(WindowHandle window) {
  Window* const known = model_.windows.find(window);
  return known != nullptr && known->ours() ? known : nullptr;
}

}  // namespace sonivo::sim
