#pragma once

#include <memory>
#include <mutex>

#include "platform/desktop.h"
#include "platform/linux/desktop_state.h"
#include "platform/linux/headless_windows.h"
#include "platform/linux/no_display.h"

namespace sonivo::linux {

/// The desktop of a program that has no display: message queues, windows and timers as anywhere, nothing to see and
/// nobody to click.
class HeadlessDesktop final : public Desktop {
 public:
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
  HeadlessWindows& windows() override { return windows_; }
  NoForeground& foreground() override { return foreground_; }
  NoPainting& painting() override { return painting_; }
  NoInput& input() override { return input_; }

  /// For what sends messages of the machine's own.
  const std::shared_ptr<DesktopState>& state() const { return state_; }

 private:
  using Lock = std::unique_lock<std::mutex>;
  void make_calls(Lock& lock, ThreadQueue& queue);
  bool has_work(const ThreadQueue& queue);
  bool take(ThreadQueue& queue, Message& message);
  WaitResult wait(Lock& lock, ThreadQueue& queue, std::span<Event* const> events,
                  std::optional<DesktopState::Time> end);

  const std::shared_ptr<DesktopState> state_ = std::make_shared<DesktopState>();
  HeadlessWindows windows_{state_};
  NoForeground foreground_{state_};
  NoPainting painting_;
  NoInput input_;
};

}  // namespace sonivo::linux
