#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/device.h"
#include "platform/linux/overlapped_control.h"

namespace sonivo::linux {

/// The part of the bus on which the driver's control device is: one interface, there as long as something listens at
/// the socket's path (a socket that a killed driver left is none). Each handle is a connection of its own.
class ControlBus final : public DeviceBus {
 public:
  explicit ControlBus(std::string socket_path) : path_(std::move(socket_path)) {}
  /// Closes what is open still.
  ~ControlBus() override;

  std::vector<DeviceInterface> interfaces(const Guid& category) override;
  /// As many handles as the driver serves of one process, whatever the sharing; none that isn't served. The reasons are
  /// those of connect_control().
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override;
  /// Null: no window is told.
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override;
  /// Null for a synchronous handle, at which nobody waits for the driver to go.
  std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback) override;

 private:
  struct Reader {
    std::shared_ptr<OverlappedLink> link;
    std::shared_ptr<std::atomic<bool>> done;
    std::thread thread;
  };
  std::shared_ptr<Device> open_overlapped(Descriptor socket, Error& why);
  void join_ended();

  std::string path_;
  std::mutex mutex_;
  std::vector<Reader> readers_;
};

}  // namespace sonivo::linux
