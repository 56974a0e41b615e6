#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/device.h"
#include "platform/linux/control_socket.h"
#include "platform/linux/open_links.h"
#include "platform/linux/overlapped_control.h"

namespace sonivo::linux {

/// The part of the bus on which the driver's control device is: one interface, there as long as something listens at
/// the socket's path (a socket that a killed driver left is none). Each handle is a connection of its own.
class ControlBus final : public DeviceBus {
 public:
  /// `limit`: how long the driver may take to answer. When it takes longer on one handle, all of them are lost.
  explicit ControlBus(std::string socket_path, std::chrono::milliseconds limit = kAnswerLimit)
      : path_(std::move(socket_path)), limit_(limit) {}
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
  std::function<void()> losing_all() const;

  const std::string path_;
  const std::chrono::milliseconds limit_;
  const std::shared_ptr<OpenLinks> links_ = std::make_shared<OpenLinks>();
  std::mutex mutex_;
  std::vector<Reader> readers_;
};

}  // namespace sonivo::linux
