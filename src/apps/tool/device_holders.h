#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sonivo::tool {

/// A program that has a sound device of this machine open.
struct DeviceHolder {
  std::string device;  ///< as the kernel calls it, "card0/pcm0c"
  std::string program;
  long process = 0;
};

/// Those but the audio server and its session manager, which share what they hold. The kernel tells of sound cards and
/// of processes in these folders; what can't be read there counts as nothing.
std::vector<DeviceHolder> device_holders(const std::filesystem::path& cards = "/proc/asound",
                                         const std::filesystem::path& processes = "/proc");

}  // namespace sonivo::tool
