#include "relay/virtual_device.h"

#include <cstddef>

#include "base/text.h"

namespace sonivo {
namespace {

constexpr Guid kCategoryAudio{0x6994AD04, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
constexpr char kRelayService[] = "NorvellRelay";

}  // namespace

std::optional<std::string> FindVirtualDevicePath(DeviceBus& bus, DataFlow flow) {
  const std::string filter = flow == DataFlow::capture ? "\\WaveMicIn" : "\\WaveSpeaker";
  for (const DeviceInterface& candidate : bus.interfaces(kCategoryAudio)) {
    if (candidate.service != kRelayService) continue;
    std::string path = to_lower_ascii(candidate.path);
    const std::size_t at = path.find(to_lower_ascii(filter));
    if (at == std::string::npos) continue;
    path.resize(at);
    return path + "\\VADrv" + filter;
  }
  return std::nullopt;
}

}  // namespace sonivo
