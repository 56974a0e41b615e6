#include "platform/linux/desktop_state.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "platform/window_messages.h"

namespace sonivo::linux {
namespace {

/// A thread's number, never used again, and the desktops that learn of its end.
struct ThreadMark {
  ThreadMark() = default;
  ThreadMark(const ThreadMark&) = delete;
  ThreadMark& operator=(const ThreadMark&) = delete;
  ~ThreadMark() {
    for (const auto& each : desktops) {
      if (const auto desktop = each.lock()) desktop->thread_ended(id);
    }
  }

  static ThreadId next() {
    static std::atomic<std::uint64_t> latest = 0;
    return ThreadId{++latest};
  }

  const ThreadId id = next();
  std::vector<std::weak_ptr<DesktopState>> desktops;
};

thread_local ThreadMark this_thread;

}  // namespace

ThreadId DesktopState::current_thread() { return this_thread.id; }

ThreadQueue* DesktopState::own_queue(const std::shared_ptr<DesktopState>& state) {
  const auto found = state->queues_.find(this_thread.id);
  if (found != state->queues_.end()) return &found->second;
  auto arrival = state->events.create(Reset::manual);
  if (!arrival) return nullptr;
  std::erase_if(this_thread.desktops, [](const auto& desktop) { return desktop.expired(); });
  this_thread.desktops.push_back(state);
  ThreadQueue& queue = state->queues_[this_thread.id];
  queue.arrival = std::move(arrival);
  return &queue;
}

Window* DesktopState::ours(WindowHandle window) {
  Window* const known = windows.find(window);
  return known != nullptr && known->ours() ? known : nullptr;
}

Window* DesktopState::own(WindowHandle window) {
  Window* const known = ours(window);
  return known != nullptr && known->owner == current_thread() ? known : nullptr;
}

// ---- Messages

// What is due came before.
bool DesktopState::post(ThreadId thread, const Message& message) {
  const auto queue = queues_.find(thread);
  if (queue == queues_.end()) return false;
  expire_timers(thread);
  queue->second.messages.push_back(message);
  queue->second.arrival->set();
  return true;
}

void DesktopState::post(const Message& message) {
  if (const Window* const window = ours(message.window)) post(window->owner, message);
}

void DesktopState::send(const Message& message, std::shared_ptr<const void> record, Answered answered) {
  const Window* const window = ours(message.window);
  if (window == nullptr) {
    if (answered) answered(std::nullopt);
    return;
  }
  ThreadQueue& queue = queues_.at(window->owner);
  queue.sent.push_back({message, std::move(record), std::move(answered)});
  queue.arrival->set();
}

std::size_t DesktopState::send_to_all(std::uint32_t message, std::uint64_t wParam, const Answered& answered) {
  std::size_t count = 0;
  for (const WindowHandle window : windows.order()) {
    if (ours(window) == nullptr) continue;
    send({.window = window, .message = message, .wParam = wParam}, nullptr, answered);
    ++count;
  }
  return count;
}

void DesktopState::ask_for_paint(WindowHandle handle) {
  const Window* const window = ours(handle);
  if (window != nullptr && window->visible && window->invalid) queues_.at(window->owner).arrival->set();
}

std::optional<std::int64_t> DesktopState::call(const Message& message) {
  std::shared_ptr<const WindowProcedure> procedure;
  {
    const std::scoped_lock lock(mutex);
    if (const Window* const window = ours(message.window)) procedure = window->procedure;
  }
  if (!procedure) return std::nullopt;
  return (*procedure)(message);
}

// ---- Timers

void DesktopState::set_timer(WindowHandle window, std::uint64_t number, Duration period) {
  timers_[{window, number}] = {period, std::chrono::steady_clock::now() + period};
  queues_.at(ours(window)->owner).arrival->set();  // its wait may be too long now
}

bool DesktopState::kill_timer(WindowHandle window, std::uint64_t number) {
  const auto timer = timers_.find({window, number});
  if (timer == timers_.end()) return false;
  expire_timers(ours(window)->owner);
  timers_.erase(timer);
  return true;
}

std::map<DesktopState::TimerKey, DesktopState::Timer>::const_iterator DesktopState::first_timer(ThreadId thread) const {
  auto first = timers_.end();
  for (auto each = timers_.begin(); each != timers_.end(); ++each) {
    if (windows.find(each->first.window)->owner != thread) continue;
    if (first == timers_.end() || each->second.next < first->second.next) first = each;
  }
  return first;
}

std::optional<DesktopState::Time> DesktopState::next_timer(ThreadId thread) const {
  const auto first = first_timer(thread);
  if (first == timers_.end()) return std::nullopt;
  return first->second.next;
}

void DesktopState::expire_timers(ThreadId thread) {
  const Time now = std::chrono::steady_clock::now();
  for (auto due = first_timer(thread); due != timers_.end() && due->second.next <= now; due = first_timer(thread)) {
    Timer& timer = timers_.at(due->first);
    timer.next = std::max(timer.next, now - timer.period) + timer.period;  // periods that nobody waited for are over
    ThreadQueue& queue = queues_.at(thread);
    const Message message{.window = due->first.window, .message = kWmTimer, .wParam = due->first.number};
    if (std::find(queue.messages.begin(), queue.messages.end(), message) == queue.messages.end()) {
      queue.messages.push_back(message);
      queue.arrival->set();
    }
  }
}

// ---- Ends

std::optional<Window> DesktopState::remove(WindowHandle handle) {
  if (ours(handle) == nullptr) return std::nullopt;
  std::erase_if(timers_, [&](const auto& timer) { return timer.first.window == handle; });
  auto window = windows.remove(handle);
  std::erase_if(queues_.at(window->owner).messages, [&](const Message& message) { return message.window == handle; });
  return window;
}

void DesktopState::thread_ended(ThreadId thread) {
  std::vector<std::optional<Window>> gone;  // go without the mutex
  ThreadQueue queue;
  const std::scoped_lock lock(mutex);
  const std::vector<WindowHandle> all = windows.order();
  for (const WindowHandle window : all) {
    if (windows.find(window)->owner == thread) gone.push_back(remove(window));
  }
  queue = std::move(queues_.at(thread));
  queues_.erase(thread);
  for (const Sent& each : queue.sent) {
    if (each.answered) each.answered(std::nullopt);
  }
}

}  // namespace sonivo::linux
