#include "platform/sim/thread_queues.h"

#include <algorithm>
#include <utility>

namespace sonivo::sim {

ThreadQueue& ThreadQueues::of(ThreadId thread) { return queues_.try_emplace(thread, scheduler_).first->second; }

void ThreadQueues::post(ThreadId thread, const Message& message) {
  ThreadQueue& queue = of(thread);
  queue.messages.push_back(message);
  queue.arrival.signal();
}

void ThreadQueues::call(ThreadId thread, std::function<void()> call) {
  ThreadQueue& queue = of(thread);
  queue.calls.push_back(std::move(call));
  queue.arrival.signal();
}

bool ThreadQueues::queued(ThreadId thread, const Message& like) {
  const std::deque<Message>& messages = of(thread).messages;
  return std::any_of(messages.begin(), messages.end(), [&](const Message& message) {
    return message.window == like.window && message.message == like.message && message.wParam == like.wParam;
  });
}

void ThreadQueues::drop(ThreadId thread, WindowHandle window) {
  std::erase_if(of(thread).messages, [&](const Message& message) { return message.window == window; });
}

}  // namespace sonivo::sim
