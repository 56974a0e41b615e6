#include "platform/sim/desktop.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "platform/sim/participant.h"

namespace sonivo::sim {

SimDesktop::SimDesktop(Scheduler& scheduler, Script& script)
    : scheduler_(scheduler),
      script_(script),
      model_(scheduler, script),
      windows_(model_),
      foreground_(model_),
      painting_(model_),
      input_(model_, windows_) {}

// ---- The calling thread's queue

ThreadId SimDesktop::current_thread() {
  std::scoped_lock lock(scheduler_.mutex());
  own_queue();
  return model_.current_thread();
}

Got SimDesktop::get_message(Message& message) {
  if (script_.enter(Step::get_message)) return Got::failed;
  Lock lock(scheduler_.mutex());
  ThreadQueue& queue = own_queue();
  for (;;) {
    make_calls(lock, queue);
    if (take(queue, message)) return message.message == kWmQuit ? Got::quit : Got::message;
    scheduler_.block_until(lock, queue.arrival, "a message", [&] { return has_work(queue); });
  }
}

bool SimDesktop::peek_message(Message& message) {
  if (script_.enter(Step::peek_message)) return false;
  Lock lock(scheduler_.mutex());
  ThreadQueue& queue = own_queue();
  make_calls(lock, queue);
  return take(queue, message);
}

std::int64_t SimDesktop::dispatch_message(const Message& message) {
  if (script_.enter(Step::dispatch_message)) return 0;
  return model_.call(message).value_or(0);
}

WaitResult SimDesktop::wait_any_or_message(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) {
  if (const auto failure = script_.enter(Step::wait_message)) return {std::nullopt, *failure};
  if (events.size() >= kMaxWaits) return {std::nullopt, error::kInvalidParameter};
  if (std::find(events.begin(), events.end(), nullptr) != events.end()) return {std::nullopt, error::kInvalidHandle};
  Lock lock(scheduler_.mutex());
  ThreadQueue& queue = own_queue();
  std::array<Event*, kMaxWaits> all{};
  std::copy(events.begin(), events.end(), all.begin());
  all[events.size()] = &queue.arrival;
  std::optional<Time> deadline;
  if (limit_ms) deadline = scheduler_.now() + *limit_ms * kMillisecond;
  for (;;) {
    queue.arrival.clear();
    if (has_work(queue)) queue.arrival.signal();
    const auto index =
        scheduler_.wait(lock, std::span(all.data(), events.size() + 1), deadline, "one of its events or a message");
    if (index != events.size() || has_work(queue)) return {index, error::kNone};
  }
}

void SimDesktop::post_quit_message(std::int32_t exit_code) {
  if (script_.enter(Step::post_quit_message)) return;
  std::scoped_lock lock(scheduler_.mutex());
  own_queue().quit = exit_code;
}

// The calls may bring further ones, and all but the mutex may change meanwhile.
void SimDesktop::make_calls(Lock& lock, ThreadQueue& queue) {
  while (!queue.calls.empty()) {
    std::function<void()> call = std::move(queue.calls.front());
    queue.calls.pop_front();
    lock.unlock();
    call();
    call = nullptr;
    lock.lock();
  }
}

bool SimDesktop::has_work(const ThreadQueue& queue) {
  return !queue.calls.empty() || queue.quit || !queue.messages.empty() ||
         model_.windows.to_paint(model_.current_thread()) != WindowHandle::none;
}

bool SimDesktop::take(ThreadQueue& queue, Message& message) {
  if (queue.quit) {
    message = {.message = kWmQuit, .wParam = static_cast<std::uint64_t>(*std::exchange(queue.quit, std::nullopt))};
    return true;
  }
  if (!queue.messages.empty()) {
    message = queue.messages.front();
    queue.messages.pop_front();
    return true;
  }
  const WindowHandle unpainted = model_.windows.to_paint(model_.current_thread());
  if (unpainted == WindowHandle::none) return false;
  model_.windows.find(unpainted)->invalid = false;
  message = {.window = unpainted, .message = kWmPaint};
  return true;
}

// ---- Any queue

void SimDesktop::post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) {
  if (script_.enter(Step::post_message)) return;
  std::scoped_lock lock(scheduler_.mutex());
  messages_.push_back({scheduler_.now(), window, message, wParam});
  model_.post({.window = window, .message = message, .wParam = wParam});
}

bool SimDesktop::post_thread_message(ThreadId thread, std::uint32_t message, std::uint64_t wParam) {
  if (script_.enter(Step::post_thread_message)) return false;
  std::scoped_lock lock(scheduler_.mutex());
  if (!model_.queues.has(thread)) return false;
  model_.queues.post(thread, {.message = message, .wParam = wParam});
  return true;
}

// ---- For tests and models

std::vector<PostedMessage> SimDesktop::messages() const {
  std::scoped_lock lock(scheduler_.mutex());
  return messages_;
}

void SimDesktop::post_from_outside(const Message& message) {
  std::scoped_lock lock(scheduler_.mutex());
  model_.post(message);
}

void SimDesktop::set_window_procedure(DeviceListener listener) {
  std::scoped_lock lock(scheduler_.mutex());
  device_listener_ = std::move(listener);
}

void SimDesktop::send_device_change(WindowHandle window, std::uint64_t wParam, const DeviceBroadcast& broadcast) {
  if (model_.windows.find(window) != nullptr) {
    const auto record = std::make_shared<const DeviceBroadcast>(broadcast);
    model_.send({.window = window, .message = kWmDeviceChange, .wParam = wParam, .lParam = record_parameter(*record)},
                record);
  } else if (device_listener_) {
    scheduler_.post_to_system([listener = device_listener_, window, wParam, broadcast] {
      listener(window, kWmDeviceChange, wParam, broadcast);
    });
  }
}

}  // namespace sonivo::sim
