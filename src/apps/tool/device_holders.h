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

/// Those but the audio server and its session manager, which share what they hold. `proc` is where the kernel tells of
/// processes and sound cards; what can't be read there counts as nothing.
std::vector<DeviceHolder> device_holders(const std::filesystem::path& proc = "/proc");

}  // namespace sonivo::tool
