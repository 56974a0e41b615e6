#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>

#include "platform/message.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

/// What one thread has to see to.
struct ThreadQueue {
  explicit ThreadQueue(Scheduler& scheduler) : arrival(scheduler, Reset::manual) {}

  std::deque<std::function<void()>> calls;  ///< made by the thread itself, without the mutex
  std::deque<Message> messages;
  std::optional<std::int32_t> quit;  ///< exit code
  SimEvent arrival;                  ///< signalled when anything comes
};

/// The queues of all threads that have one. Guarded by the scheduler's mutex.
class ThreadQueues {
 public:
  explicit ThreadQueues(Scheduler& scheduler) : scheduler_(scheduler) {}

  /// Makes one for a thread that has none.
  ThreadQueue& of(ThreadId thread);
  bool has(ThreadId thread) const { return queues_.contains(thread); }
  void post(ThreadId thread, const Message& message);
  void call(ThreadId thread, std::function<void()> call);
  /// Whether a message with this window, number and wParam is queued.
  bool queued(ThreadId thread, const Message& like);
  /// Takes out what is queued for a window.
  void drop(ThreadId thread, WindowHandle window);

 private:
  Scheduler& scheduler_;
  std::map<ThreadId, ThreadQueue> queues_;
};

}  // namespace sonivo::sim
