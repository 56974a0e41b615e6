#include "apps/service/simulated_notebook.h"

#include <utility>

#include "platform/control_requests.h"

namespace sonivo {
namespace {

/// A handle of the real driver. What waits for the driver does so outside of the simulation.
class ControlHandle final : public Device {
 public:
  ControlHandle(sim::Scheduler& scheduler, std::shared_ptr<Device> handle)
      : scheduler_(scheduler), handle_(std::move(handle)) {}

  Error control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                Overlapped& request) override {
    return scheduler_.outside([&] { return handle_->control(code, input, output, request); });
  }
  Error result(Overlapped& request, std::uint32_t& transferred, bool wait) override {
    return scheduler_.outside([&] { return handle_->result(request, transferred, wait); });
  }
  void cancel(Overlapped& request) override { handle_->cancel(request); }
  Error control_now(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                    std::uint32_t& transferred) override {
    return scheduler_.outside([&] { return handle_->control_now(code, input, output, transferred); });
  }
  void close() override { handle_->close(); }

  const Device& handle() const { return *handle_; }

 private:
  sim::Scheduler& scheduler_;
  std::shared_ptr<Device> handle_;
};

}  // namespace

SimulatedNotebook::SimulatedNotebook(const std::string& socket_path, const sim::Config& config,
                                     std::chrono::milliseconds limit)
    : simulation_(config), bus_(simulation_, socket_path, limit) {
  simulation_.scheduler().set_realtime(true);
}

Machine SimulatedNotebook::seams() {
  const Machine machine = simulation_.seams();
  return {.clock = machine.clock,
          .events = machine.events,
          .threads = machine.threads,
          .bus = bus_,
          .endpoints = machine.endpoints,
          .fx_properties = fx_properties_,
          .session = machine.session,
          .power = machine.power,
          .desktop = machine.desktop,
          .processes = machine.processes,
          .folders = machine.folders};
}

std::vector<DeviceInterface> SimulatedNotebook::Bus::interfaces(const Guid& category) {
  if (category == control::kControlInterface) return control_.interfaces(category);
  return simulation_.driver().interfaces(category);
}

std::shared_ptr<Device> SimulatedNotebook::Bus::open(const std::string& path, Sharing sharing, Completion completion,
                                                     Error& why) {
  if (!path.starts_with('/')) return simulation_.driver().open(path, sharing, completion, why);
  auto handle = simulation_.scheduler().outside([&] { return control_.open(path, sharing, completion, why); });
  if (!handle) return nullptr;
  return std::make_shared<ControlHandle>(simulation_.scheduler(), std::move(handle));
}

std::unique_ptr<RemovalNotice> SimulatedNotebook::Bus::notify_removal(const DeviceBroadcast& broadcast,
                                                                      WindowHandle window) {
  return simulation_.driver().notify_removal(broadcast, window);
}

std::unique_ptr<Registration> SimulatedNotebook::Bus::notify_actions(const Device& device,
                                                                     DeviceActionCallback callback) {
  const auto* control = dynamic_cast<const ControlHandle*>(&device);
  if (control == nullptr) return simulation_.driver().notify_actions(device, std::move(callback));
  return control_.notify_actions(control->handle(), std::move(callback));
}

}  // namespace sonivo
