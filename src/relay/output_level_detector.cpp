#include "relay/output_level_detector.h"

#include <array>

namespace sonivo {
namespace {

constexpr std::array<std::uint32_t, 4> kVersion{1, 0, 0, 0};

}  // namespace

std::uint32_t OutputLevelDetectorVersion() {
  std::uint32_t version = 0;
  for (const std::uint32_t number : kVersion) version = version << 8 | number;
  return version;
}

}  // namespace sonivo
