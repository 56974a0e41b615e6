#include "platform/linux/headless_desktop.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "platform/window_messages.h"

namespace sonivo::linux {
namespace {

constexpr std::size_t kMostEvents = 63;

using Time = DesktopState::Time;

/// Until then from now, rounded up; none: for ever.
std::optional<std::uint32_t> milliseconds_until(std::optional<Time> end) {
  if (!end) return std::nullopt;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - std::chrono::steady_clock::now()).count();
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(left, 0, INT32_MAX));
}

std::optional<Time> earlier(std::optional<Time> a, std::optional<Time> b) {
  if (!a || !b) return a ? a : b;
  return std::min(*a, *b);
}

}  // namespace

// ---- The calling thread's queue

ThreadId HeadlessDesktop::current_thread() {
  const Lock lock(state_->mutex);
  DesktopState::own_queue(state_);
  return DesktopState::current_thread();
}

Got HeadlessDesktop::get_message(Message& message) {
  Lock lock(state_->mutex);
  ThreadQueue* const queue = DesktopState::own_queue(state_);
  if (queue == nullptr) return Got::failed;
  for (;;) {
    make_calls(lock, *queue);
    if (take(*queue, message)) return message.message == kWmQuit ? Got::quit : Got::message;
    if (wait(lock, *queue, {}, std::nullopt).error != error::kNone) return Got::failed;
  }
}

bool HeadlessDesktop::peek_message(Message& message) {
  Lock lock(state_->mutex);
  ThreadQueue* const queue = DesktopState::own_queue(state_);
  if (queue == nullptr) return false;
  make_calls(lock, *queue);
  return take(*queue, message);
}

std::int64_t HeadlessDesktop::dispatch_message(const Message& message) { return state_->call(message).value_or(0); }

WaitResult HeadlessDesktop::wait_any_or_message(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) {
  if (events.size() > kMostEvents) return {std::nullopt, error::kInvalidParameter};
  if (std::find(events.begin(), events.end(), nullptr) != events.end()) return {std::nullopt, error::kInvalidHandle};
  std::optional<Time> end;
  if (limit_ms) end = std::chrono::steady_clock::now() + std::chrono::milliseconds(*limit_ms);
  Lock lock(state_->mutex);
  ThreadQueue* const queue = DesktopState::own_queue(state_);
  if (queue == nullptr) return {std::nullopt, error::kInvalidHandle};
  return wait(lock, *queue, events, end);
}

void HeadlessDesktop::post_quit_message(std::int32_t exit_code) {
  const Lock lock(state_->mutex);
  if (ThreadQueue* const queue = DesktopState::own_queue(state_)) queue->quit = exit_code;
}

// A call may bring further ones, and all but the mutex may change meanwhile.
void HeadlessDesktop::make_calls(Lock& lock, ThreadQueue& queue) {
  while (!queue.sent.empty()) {
    Sent sent = std::move(queue.sent.front());
    queue.sent.pop_front();
    lock.unlock();
    const auto answer = state_->call(sent.message);
    sent.record.reset();
    lock.lock();
    if (sent.answered) sent.answered(answer);
  }
}

bool HeadlessDesktop::has_work(const ThreadQueue& queue) {
  const ThreadId thread = DesktopState::current_thread();
  state_->expire_timers(thread);
  return !queue.sent.empty() || queue.quit || !queue.messages.empty() ||
         state_->windows.to_paint(thread) != WindowHandle::none;
}

bool HeadlessDesktop::take(ThreadQueue& queue, Message& message) {
  if (queue.quit) {
    message = {.message = kWmQuit, .wParam = static_cast<std::uint64_t>(*std::exchange(queue.quit, std::nullopt))};
    return true;
  }
  const ThreadId thread = DesktopState::current_thread();
  state_->expire_timers(thread);
  if (!queue.messages.empty()) {
    message = queue.messages.front();
    queue.messages.pop_front();
    return true;
  }
  const WindowHandle unpainted = state_->windows.to_paint(thread);
  if (unpainted == WindowHandle::none) return false;
  state_->windows.find(unpainted)->invalid = false;
  message = {.window = unpainted, .message = kWmPaint};
  return true;
}

// Whatever brings work sets the arrival with the mutex held, so that none comes unseen between the look and the wait.
WaitResult HeadlessDesktop::wait(Lock& lock, ThreadQueue& queue, std::span<Event* const> events,
                                 std::optional<Time> end) {
  std::vector<Event*> all(events.begin(), events.end());
  all.push_back(queue.arrival.get());
  for (;;) {
    queue.arrival->reset();
    if (has_work(queue)) queue.arrival->set();
    const auto limit = milliseconds_until(earlier(end, state_->next_timer(DesktopState::current_thread())));
    lock.unlock();
    const WaitResult result = state_->events.wait_any(all, limit);
    lock.lock();
    if (result.error != error::kNone || (result.index && *result.index < events.size())) return result;
    if (has_work(queue)) return {events.size(), error::kNone};
    if (end && std::chrono::steady_clock::now() >= *end) return {};
  }
}

// ---- Any queue

void HeadlessDesktop::post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) {
  const Lock lock(state_->mutex);
  state_->post({.window = window, .message = message, .wParam = wParam});
}

bool HeadlessDesktop::post_thread_message(ThreadId thread, std::uint32_t message, std::uint64_t wParam) {
  const Lock lock(state_->mutex);
  return state_->post(thread, {.message = message, .wParam = wParam});
}

}  // namespace sonivo::linux
