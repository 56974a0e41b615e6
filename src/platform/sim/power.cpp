#include "platform/sim/power.h"

#include <algorithm>
#include <utility>

#include "platform/window_messages.h"

namespace sonivo::sim {

class SimPower::Callback final : public Registration {
 public:
  // With the mutex held.
  Callback(SimPower& power, PowerCallback its_call)
      : call(std::move(its_call)), number(++power.latest_callback_), power_(power) {
    power_.callbacks_.push_back(this);
  }
  ~Callback() override {
    power_.desktop_.script.enter(Step::power_unregister_suspend_resume);
    Scheduler& scheduler = power_.desktop_.scheduler;
    std::unique_lock lock(scheduler.mutex());
    std::erase(power_.callbacks_, this);
    if (scheduler.on_system_thread()) return;
    scheduler.block_until(lock, power_.call_ended_, "the end of a power callback",
                          [this] { return power_.in_call_ != this; });
  }

  const PowerCallback call;
  const std::uint64_t number;

 private:
  SimPower& power_;
};

class SimPower::SettingNotice final : public Registration {
 public:
  // With the mutex held.
  SettingNotice(SimPower& power, WindowHandle its_window) : window(its_window), power_(power) {
    power_.settings_.push_back(this);
  }
  ~SettingNotice() override {
    power_.desktop_.script.enter(Step::power_unregister_setting);
    std::scoped_lock lock(power_.desktop_.scheduler.mutex());
    std::erase(power_.settings_, this);
  }

  const WindowHandle window;

 private:
  SimPower& power_;
};

std::unique_ptr<Registration> SimPower::register_suspend_resume(PowerCallback callback) {
  if (desktop_.script.enter(Step::power_register_suspend_resume) || !callback) return nullptr;
  std::scoped_lock lock(desktop_.scheduler.mutex());
  return std::make_unique<Callback>(*this, std::move(callback));
}

std::unique_ptr<Registration> SimPower::register_setting(WindowHandle window, const Guid& setting) {
  if (desktop_.script.enter(Step::power_register_setting) || setting != kConsoleDisplayState) return nullptr;
  std::scoped_lock lock(desktop_.scheduler.mutex());
  if (desktop_.windows.find(window) == nullptr) return nullptr;
  auto notice = std::make_unique<SettingNotice>(*this, window);
  tell_display(window);
  return notice;
}

bool SimPower::capabilities(PowerCapabilities& capabilities) {
  if (desktop_.script.enter(Step::power_capabilities)) return false;
  capabilities.AoAc = connected_standby_;
  return true;
}

bool SimPower::require_display() { return !desktop_.script.enter(Step::power_require_display); }

void SimPower::set_display(std::uint32_t state) {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  display_ = state;
  for (const SettingNotice* notice : settings_) tell_display(notice->window);
}

void SimPower::tell_display(WindowHandle window) {
  const auto setting = std::make_shared<const PowerSetting>(PowerSetting{kConsoleDisplayState, 4, display_});
  desktop_.send({.window = window,
                 .message = kWmPowerBroadcast,
                 .wParam = kPowerSettingChange,
                 .lParam = record_parameter(*setting)},
                setting);
}

void SimPower::tell_transition(std::uint64_t transition) {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  if (!callbacks_.empty()) {
    desktop_.scheduler.post_to_system([this, latest = latest_callback_, transition] { call_all(latest, transition); });
  }
  desktop_.send_to_all(kWmPowerBroadcast, transition);
}

// Those that are registered at the transition and still are when their turn comes.
void SimPower::call_all(std::uint64_t latest, std::uint64_t transition) {
  std::unique_lock lock(desktop_.scheduler.mutex());
  for (std::uint64_t done = 0;;) {
    const auto next = std::find_if(callbacks_.begin(), callbacks_.end(),
                                   [&](const Callback* each) { return each->number > done && each->number <= latest; });
    if (next == callbacks_.end()) return;
    in_call_ = *next;
    done = in_call_->number;
    const PowerCallback call = in_call_->call;  // may end its own registration
    lock.unlock();
    call(transition);
    lock.lock();
    in_call_ = nullptr;
    call_ended_.signal();
  }
}

std::size_t SimPower::registrations() const {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  return callbacks_.size() + settings_.size();
}

}  // namespace sonivo::sim
