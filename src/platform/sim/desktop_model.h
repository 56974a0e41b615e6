#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/message.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/script.h"
#include "platform/sim/thread_queues.h"
#include "platform/window_table.h"

namespace sonivo::sim {

/// Told, with the scheduler's mutex held, what a procedure answered; nothing when its window was gone by then.
using Answered = std::function<void(std::optional<std::int64_t> answer)>;

/// What the parts of the desktop share. Guarded by the scheduler's mutex, which is held for all calls but call().
struct DesktopModel {
  DesktopModel(Scheduler& its_scheduler, Script& its_script)
      : scheduler(its_scheduler), script(its_script), queues(its_scheduler) {}

  ThreadId current_thread() { return ThreadId{scheduler.current_thread()}; }

  /// Queues a message to one of the program's windows.
  void post(const Message& message);
  /// Has the window's thread call the procedure as soon as it waits for messages. The record stays until then.
  void send(Message message, std::shared_ptr<const void> record = nullptr, Answered answered = {});
  /// Sends it to every window of the program; returns how many.
  std::size_t send_to_all(std::uint32_t message, std::uint64_t wParam, const Answered& answered = {});
  /// Wakes the thread of a window that wants to be painted.
  void ask_for_paint(WindowHandle window);

  /// Calls the procedure on the calling thread, without the mutex.
  std::optional<std::int64_t> call(const Message& message);

  Scheduler& scheduler;
  Script& script;
  ThreadQueues queues;
  WindowTable windows;
  Point pointer;
  bool left_down = false;                     ///< the left button
  WindowHandle dragged = WindowHandle::none;  ///< follows the pointer until the button is let go
  Point grip;                                 ///< where the dragged window is held
};

}  // namespace sonivo::sim
