#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "base/event.h"
#include "platform/linux/events.h"
#include "platform/message.h"
#include "platform/window_table.h"

namespace sonivo::linux {

/// Told, with the desktop's mutex held, what a procedure answered; nothing when its window was gone by then.
using Answered = std::function<void(std::optional<std::int64_t> answer)>;

/// A message on its way to a procedure, called by the window's own thread.
struct Sent {
  Message message;
  std::shared_ptr<const void> record;  ///< what lParam points to
  Answered answered;
};

/// What one thread has to see to.
struct ThreadQueue {
  std::deque<Sent> sent;
  std::deque<Message> messages;
  std::optional<std::int32_t> quit;  ///< exit code
  std::unique_ptr<Event> arrival;    ///< manual; set when anything comes
};

/// What the parts of a desktop share: the queues of the threads, the windows and their timers. Guarded by the mutex,
/// which is held for all calls but call() and thread_ended().
class DesktopState {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  std::mutex mutex;
  DescriptorEvents events;
  WindowTable windows;

  /// Of the calling thread, with its first call here; null when the system has no descriptor left for it. Make sure of
  /// one before the thread owns anything: what it owns goes with it.
  static ThreadQueue* own_queue(const std::shared_ptr<DesktopState>& state);
  static ThreadId current_thread();

  /// Null when there is none, or another program's.
  Window* ours(WindowHandle window);
  /// The same when the calling thread owns it.
  Window* own(WindowHandle window);

  /// Queues a message; false when the thread has no queue.
  bool post(ThreadId thread, const Message& message);
  /// Queues a message to one of the program's windows.
  void post(const Message& message);
  /// Has the window's thread call the procedure as soon as it waits for messages. The record stays until then.
  void send(const Message& message, std::shared_ptr<const void> record = nullptr, Answered answered = {});
  /// Sends it to every window of the program; returns how many.
  std::size_t send_to_all(std::uint32_t message, std::uint64_t wParam, const Answered& answered = {});
  /// Wakes the thread of a window that wants to be painted.
  void ask_for_paint(WindowHandle window);

  /// Sets it anew where it runs.
  void set_timer(WindowHandle window, std::uint64_t number, Duration period);
  bool kill_timer(WindowHandle window, std::uint64_t number);
  /// Queues a message for each timer of the thread that is due. One that is queued already is not queued again.
  void expire_timers(ThreadId thread);
  /// When the thread's next timer is due.
  std::optional<Time> next_timer(ThreadId thread) const;

  /// Takes a window out with its timers and messages, for its procedure to be destroyed without the mutex.
  std::optional<Window> remove(WindowHandle window);

  /// Calls the procedure on the calling thread, without the mutex.
  std::optional<std::int64_t> call(const Message& message);
  /// The windows of a thread end with it, without being told, and its queue.
  void thread_ended(ThreadId thread);

 private:
  struct TimerKey {
    WindowHandle window;
    std::uint64_t number;
    friend auto operator<=>(const TimerKey&, const TimerKey&) = default;
  };
  struct Timer {
    Duration period;
    Time next;
  };
  std::map<TimerKey, Timer>::const_iterator first_timer(ThreadId thread) const;

  std::map<ThreadId, ThreadQueue> queues_;
  std::map<TimerKey, Timer> timers_;
};

}  // namespace sonivo::linux
