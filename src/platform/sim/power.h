#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/power.h"
#include "platform/sim/desktop_model.h"

namespace sonivo::sim {

/// Power of the notebook: awake with its display on, without connected standby unless set otherwise. Transitions are
/// only told; time and threads go on.
class SimPower final : public Power {
 public:
  explicit SimPower(DesktopModel& desktop) : desktop_(desktop), call_ended_(desktop.scheduler, Reset::manual) {}

  // Power
  std::unique_ptr<Registration> register_suspend_resume(PowerCallback callback) override;
  std::unique_ptr<Registration> register_setting(WindowHandle window, const Guid& setting) override;
  bool capabilities(PowerCapabilities& capabilities) override;
  bool require_display() override;

  // What happens
  void suspend() { tell_transition(kPowerSuspend); }
  void resume() { tell_transition(kPowerResumeAutomatic); }
  /// kDisplayOff, kDisplayOn or kDisplayDimmed.
  void set_display(std::uint32_t state);
  void set_connected_standby(bool present) { connected_standby_ = present; }

  /// Callbacks and windows that are still registered.
  std::size_t registrations() const;

 private:
  class Callback;
  class SettingNotice;
  void tell_transition(std::uint64_t transition);
  void call_all(std::uint64_t latest, std::uint64_t transition);
  void tell_display(WindowHandle window);

  DesktopModel& desktop_;
  std::atomic<bool> connected_standby_ = false;
  std::uint32_t display_ = kDisplayOn;
  std::vector<Callback*> callbacks_;  ///< in the order of their numbers
  std::uint64_t latest_callback_ = 0;
  const Callback* in_call_ = nullptr;
  SimEvent call_ended_;
  std::vector<SettingNotice*> settings_;
};

}  // namespace sonivo::sim
