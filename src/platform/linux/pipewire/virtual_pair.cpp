#include "platform/linux/pipewire/virtual_pair.h"

#include <utility>

#include "base/text.h"

namespace sonivo::pipewire {
namespace {

constexpr Guid kCategoryAudio{0x6994AD04, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
constexpr char kPairService[] = "NorvellRelay";

// What an interface is opened by is its path up to the filter's name, then "\VADrv" and that name.
constexpr char kMicrophoneInterface[] = "pipewire\\wavemicin";
constexpr char kSpeakerInterface[] = "pipewire\\wavespeaker";
constexpr char kMicrophonePath[] = "pipewire\\VADrv\\WaveMicIn";
constexpr char kSpeakerPath[] = "pipewire\\VADrv\\WaveSpeaker";

class SilentNotice final : public RemovalNotice {};

}  // namespace

VirtualPair::VirtualPair(Connection& connection, Graph& graph, Pacer& pacer, DeviceBus& others,
                         const WAVEFORMATEXTENSIBLE& format)
    : others_(others),
      microphone_(connection, graph, pacer, DataFlow::capture, format),
      speaker_(connection, graph, pacer, DataFlow::render, format),
      relinker_(connection, {VirtualPin::node_name(DataFlow::capture), VirtualPin::node_name(DataFlow::render)}) {}

std::vector<DeviceInterface> VirtualPair::interfaces(const Guid& category) {
  if (category != kCategoryAudio) return others_.interfaces(category);
  std::vector<DeviceInterface> present;
  if (microphone_.is_present()) present.push_back({kMicrophoneInterface, kPairService});
  if (speaker_.is_present()) present.push_back({kSpeakerInterface, kPairService});
  return present;
}

std::shared_ptr<Device> VirtualPair::open(const std::string& path, Sharing sharing, Completion completion, Error& why) {
  if (equals_ignoring_case(path, kMicrophonePath)) return microphone_.open(sharing, why);
  if (equals_ignoring_case(path, kSpeakerPath)) return speaker_.open(sharing, why);
  return others_.open(path, sharing, completion, why);
}

std::unique_ptr<RemovalNotice> VirtualPair::notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) {
  const bool ours = microphone_.serves(broadcast.handle) || speaker_.serves(broadcast.handle);
  if (!ours) return others_.notify_removal(broadcast, window);
  if (broadcast.devicetype != kDeviceTypeHandle) return nullptr;
  return std::make_unique<SilentNotice>();
}

std::unique_ptr<Registration> VirtualPair::notify_actions(const Device& device, DeviceActionCallback callback) {
  return others_.notify_actions(device, std::move(callback));
}

}  // namespace sonivo::pipewire
