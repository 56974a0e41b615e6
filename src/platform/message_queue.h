#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "base/event.h"
#include "platform/message.h"

namespace sonivo {

/// How get_message ended.
enum class Got { message, quit, failed };

/// The message queues of the program's threads; each thread has one. Any thread may post to any queue.
///
/// Posted messages, input and timers come in the order in which they happened; paint messages when nothing else is
/// queued. What the machine sends goes to the procedure at once, inside the waiting call, which doesn't return for it.
/// A quit comes before everything that is queued.
class MessageQueue {
 public:
  virtual ~MessageQueue() = default;

  // Of the calling thread.
  virtual ThreadId current_thread() = 0;
  /// Waits for the next message.
  virtual Got get_message(Message& message) = 0;
  /// The next message without waiting; false when there is none. A quit comes as kWmQuit.
  virtual bool peek_message(Message& message) = 0;
  /// Has the window's procedure answer; 0 when the window is gone.
  virtual std::int64_t dispatch_message(const Message& message) = 0;
  /// Waits for events and messages at once: answers the lowest signalled index, or events.size() when peek_message has
  /// something to do. At most 63 events.
  virtual WaitResult wait_any_or_message(std::span<Event* const> events,
                                         std::optional<std::uint32_t> limit_ms = std::nullopt) = 0;
  /// Ends the thread's message loop: get_message answers Got::quit with the exit code in wParam.
  virtual void post_quit_message(std::int32_t exit_code) = 0;

  /// Queues a message to a window and returns at once; any thread.
  virtual void post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) = 0;
  /// Queues a message without a window; any thread. False when that thread has no queue: it gets one
  /// with its first call here.
  virtual bool post_thread_message(ThreadId thread, std::uint32_t message, std::uint64_t wParam) = 0;
};

}  // namespace sonivo
