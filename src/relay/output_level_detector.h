#pragma once

#include <cstdint>

namespace sonivo {

/// Version of the output level detector, one byte for each of its four numbers: 1.0.0.0 is 0x01000000.
std::uint32_t OutputLevelDetectorVersion();

}  // namespace sonivo
