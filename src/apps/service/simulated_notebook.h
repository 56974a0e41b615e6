#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/linux/control_bus.h"
#include "platform/linux/fx_properties.h"
#include "platform/machine.h"
#include "platform/sim/machine.h"

namespace sonivo {

/// The simulated notebook in real time, with the control device and the effect properties of the driver that listens at
/// a socket in place of its own. The thread that constructs it is its first participant and destroys it.
class SimulatedNotebook {
 public:
  /// `limit`: how long the driver may take to answer.
  SimulatedNotebook(const std::string& socket_path, const sim::Config& config,
                    std::chrono::milliseconds limit = linux::kAnswerLimit);

  Machine seams();
  sim::SimMachine& simulation() { return simulation_; }

 private:
  class Bus final : public DeviceBus {
   public:
    Bus(sim::SimMachine& simulation, const std::string& socket_path, std::chrono::milliseconds limit)
        : simulation_(simulation), control_(socket_path, limit) {}

    /// For threads that take no part in the simulation.
    DeviceBus& control() { return control_; }

    std::vector<DeviceInterface> interfaces(const Guid& category) override;
    std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override;
    std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override;
    std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback) override;

   private:
    sim::SimMachine& simulation_;
    linux::ControlBus control_;
  };

  sim::SimMachine simulation_;
  Bus bus_;
  linux::ControlFxProperties fx_properties_{bus_, bus_.control()};
};

}  // namespace sonivo
