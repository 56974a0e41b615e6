#pragma once

#include "platform/device.h"
#include "platform/linux/pipewire/relinker.h"
#include "platform/linux/pipewire/virtual_pin.h"

namespace sonivo::pipewire {

/// The bus on which the virtual pair's devices are, beside those of another bus: "Norvell Audio Relay" as applications
/// see it, from the first connection to the server on.
class VirtualPair final : public DeviceBus {
 public:
  VirtualPair(Connection& connection, Graph& graph, Pacer& pacer, DeviceBus& others,
              const WAVEFORMATEXTENSIBLE& format = pcm_format(48000, 24, 2));

  /// The pair's, for the category of audio devices; of any other category those of the other bus.
  std::vector<DeviceInterface> interfaces(const Guid& category) override;
  /// Handles of the pair are overlapped ones, whatever is asked for.
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override;
  /// A device of the pair goes without a query before, so that its notice is never told.
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override;
  std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback) override;

 private:
  DeviceBus& others_;
  VirtualPin microphone_;
  VirtualPin speaker_;
  const Relinker relinker_;
};

}  // namespace sonivo::pipewire
