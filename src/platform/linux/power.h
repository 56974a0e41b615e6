#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/linux/desktop_state.h"
#include "platform/linux/sleep_delay.h"
#include "platform/power.h"

namespace sonivo::linux {

/// Power as logind tells it. The display counts as off while the session is idle: nothing tells of the display itself,
/// and it is then that desktops blank it.
class LogindPower final : public Power {
 public:
  struct Options {
    std::function<bool()> require_display = [] { return false; };
    std::filesystem::path mem_sleep = "/sys/power/mem_sleep";  ///< connected standby where "[s2idle]" is chosen
  };
  LogindPower(std::shared_ptr<DesktopState> desktop, Options options);
  ~LogindPower() override;

  // Power
  std::unique_ptr<Registration> register_suspend_resume(PowerCallback callback) override;
  std::unique_ptr<Registration> register_setting(WindowHandle window, const Guid& setting) override;
  bool capabilities(PowerCapabilities& capabilities) override;
  bool require_display() override { return options_.require_display(); }

  // What happens; any thread.
  /// The delay is held until all callbacks and windows have dealt with it.
  void suspend(const std::shared_ptr<SleepDelay>& delay);
  void resume();
  void set_idle(bool idle);

 private:
  class Callback;
  class SettingNotice;
  struct Transition {
    std::uint64_t latest;  ///< number of the latest callback that is told of it
    std::uint64_t transition;
    std::shared_ptr<SleepDelay> delay;
  };
  void tell(std::uint64_t transition, const std::shared_ptr<SleepDelay>& delay);
  void tell_display(WindowHandle window);
  void run();
  void call_all(std::unique_lock<std::mutex>& lock, const Transition& transition);

  const std::shared_ptr<DesktopState> desktop_;
  const Options options_;
  // Guarded by the desktop's mutex.
  std::uint32_t display_ = kDisplayOn;
  std::vector<SettingNotice*> settings_;
  std::vector<Callback*> callbacks_;  ///< in the order of their numbers
  std::uint64_t latest_callback_ = 0;
  const Callback* in_call_ = nullptr;
  std::deque<Transition> transitions_;
  bool ends_ = false;
  std::condition_variable changed_;
  std::thread thread_;  ///< makes the calls
};

}  // namespace sonivo::linux
