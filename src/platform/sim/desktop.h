#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/desktop.h"
#include "platform/device.h"
#include "platform/sim/desktop_model.h"
#include "platform/sim/foreground.h"
#include "platform/sim/input.h"
#include "platform/sim/painting.h"
#include "platform/sim/windows.h"

namespace sonivo::sim {

struct PostedMessage {
  Time time = 0;
  WindowHandle window = WindowHandle::none;
  std::uint32_t message = 0;
  std::uint64_t wParam = 0;
};

/// Told of a device record.
using DeviceListener = std::function<void(WindowHandle window, std::uint32_t message, std::uint64_t wParam,
                                          const DeviceBroadcast& broadcast)>;

/// A desktop that keeps what is done to it.
class SimDesktop final : public Desktop {
 public:
  SimDesktop(Scheduler& scheduler, Script& script);

  // MessageQueue
  ThreadId current_thread() override;
  Got get_message(Message& message) override;
  bool peek_message(Message& message) override;
  std::int64_t dispatch_message(const Message& message) override;
  WaitResult wait_any_or_message(std::span<Event* const> events,
                                 std::optional<std::uint32_t> limit_ms = std::nullopt) override;
  void post_quit_message(std::int32_t exit_code) override;
  void post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) override;
  bool post_thread_message(ThreadId thread, std::uint32_t message, std::uint64_t wParam) override;
  // Desktop
  SimWindows& windows() override { return windows_; }
  SimForeground& foreground() override { return foreground_; }
  SimPainting& painting() override { return painting_; }
  SimInput& input() override { return input_; }

  // For tests
  /// Everything that the program posted to windows so far, to those that exist only in a test as well.
  std::vector<PostedMessage> messages() const;
  /// Another program posts to a window.
  void post_from_outside(const Message& message);
  /// Who is called, on the system thread, with device records for windows that exist only in a test.
  void set_window_procedure(DeviceListener listener);

  // For the models, with the scheduler's mutex held.
  DesktopModel& model() { return model_; }
  void send_device_change(WindowHandle window, std::uint64_t wParam, const DeviceBroadcast& broadcast);

 private:
  using Lock = std::unique_lock<std::mutex>;
  ThreadQueue& own_queue() { return model_.queues.of(model_.current_thread()); }
  void make_calls(Lock& lock, ThreadQueue& queue);
  bool has_work(const ThreadQueue& queue);
  bool take(ThreadQueue& queue, Message& message);

  Scheduler& scheduler_;
  Script& script_;
  DesktopModel model_;
  SimWindows windows_;
  SimForeground foreground_;
  SimPainting painting_;
  SimInput input_;
  std::vector<PostedMessage> messages_;
  DeviceListener device_listener_;
};

}  // namespace sonivo::sim
