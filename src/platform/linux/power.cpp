#include "platform/linux/power.h"

#include <algorithm>
#include <fstream>
#include <mutex>
#include <string>
#include <utility>

#include "base/text.h"
#include "platform/window_messages.h"

namespace sonivo::linux {

class LogindPower::Callback final : public Registration {
 public:
  // With the mutex held.
  Callback(LogindPower& power, PowerCallback its_call)
      : call(std::move(its_call)), number(++power.latest_callback_), power_(power) {
    power_.callbacks_.push_back(this);
  }
  ~Callback() override {
    std::unique_lock lock(power_.desktop_->mutex);
    std::erase(power_.callbacks_, this);
    if (std::this_thread::get_id() == power_.thread_.get_id()) return;
    power_.changed_.wait(lock, [this] { return power_.in_call_ != this; });
  }

  const PowerCallback call;
  const std::uint64_t number;

 private:
  LogindPower& power_;
};

class LogindPower::SettingNotice final : public Registration {
 public:
  // With the mutex held.
  SettingNotice(LogindPower& power, WindowHandle its_window) : window(its_window), power_(power) {
    power_.settings_.push_back(this);
  }
  ~SettingNotice() override {
    const std::scoped_lock lock(power_.desktop_->mutex);
    std::erase(power_.settings_, this);
  }

  const WindowHandle window;

 private:
  LogindPower& power_;
};

LogindPower::LogindPower(std::shared_ptr<DesktopState> desktop, Options options)
    : desktop_(std::move(desktop)), options_(std::move(options)), thread_([this] { run(); }) {}

LogindPower::~LogindPower() {
  {
    const std::scoped_lock lock(desktop_->mutex);
    ends_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

// ---- Callbacks and windows

std::unique_ptr<Registration> LogindPower::register_suspend_resume(PowerCallback callback) {
  if (!callback) return nullptr;
  const std::scoped_lock lock(desktop_->mutex);
  return std::make_unique<Callback>(*this, std::move(callback));
}

void LogindPower::suspend(const std::shared_ptr<SleepDelay>& delay) { tell(kPowerSuspend, delay); }

void LogindPower::resume() { tell(kPowerResumeAutomatic, nullptr); }

void LogindPower::tell(std::uint64_t transition, const std::shared_ptr<SleepDelay>& delay) {
  {
    const std::scoped_lock lock(desktop_->mutex);
    transitions_.push_back({latest_callback_, transition, delay});
    desktop_->send_to_all(kWmPowerBroadcast, transition, [delay](auto) {});
  }
  changed_.notify_all();
}

void LogindPower::run() {
  std::unique_lock lock(desktop_->mutex);
  for (;;) {
    changed_.wait(lock, [this] { return ends_ || !transitions_.empty(); });
    if (ends_) return;
    const Transition transition = std::move(transitions_.front());
    transitions_.pop_front();
    call_all(lock, transition);
  }
}

// Those that were registered at the transition and still are when their turn comes.
void LogindPower::call_all(std::unique_lock<std::mutex>& lock, const Transition& transition) {
  for (std::uint64_t done = 0;;) {
    const auto next = std::find_if(callbacks_.begin(), callbacks_.end(), [&](const Callback* each) {
      return each->number > done && each->number <= transition.latest;
    });
    if (next == callbacks_.end()) return;
    in_call_ = *next;
    done = in_call_->number;
    const PowerCallback call = in_call_->call;  // may end its own registration
    lock.unlock();
    call(transition.transition);
    lock.lock();
    in_call_ = nullptr;
    changed_.notify_all();
  }
}

// ---- Display

std::unique_ptr<Registration> LogindPower::register_setting(WindowHandle window, const Guid& setting) {
  if (setting != kConsoleDisplayState) return nullptr;
  const std::scoped_lock lock(desktop_->mutex);
  if (desktop_->ours(window) == nullptr) return nullptr;
  auto notice = std::make_unique<SettingNotice>(*this, window);
  tell_display(window);
  return notice;
}

void LogindPower::set_idle(bool idle) {
  const std::scoped_lock lock(desktop_->mutex);
  const std::uint32_t display = idle ? kDisplayOff : kDisplayOn;
  if (std::exchange(display_, display) == display) return;
  for (const SettingNotice* const notice : settings_) tell_display(notice->window);
}

void LogindPower::tell_display(WindowHandle window) {
  const auto setting = std::make_shared<const PowerSetting>(PowerSetting{kConsoleDisplayState, 4, display_});
  desktop_->send({.window = window,
                  .message = kWmPowerBroadcast,
                  .wParam = kPowerSettingChange,
                  .lParam = record_parameter(*setting)},
                 setting);
}

bool LogindPower::capabilities(PowerCapabilities& capabilities) {
  std::string states;
  std::getline(std::ifstream(options_.mem_sleep), states);
  capabilities.AoAc = contains(states, "[s2idle]");
  return true;
}

}  // namespace sonivo::linux
