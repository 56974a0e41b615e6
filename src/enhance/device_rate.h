#pragma once

#include <cstdint>

namespace sonivo {

/// Samples of 10 ms at the model's rate.
inline constexpr std::uint32_t kModelFrame = 160;

inline constexpr bool is_device_rate(int rate) { return rate == 48000 || rate == 44100; }
/// Samples of 10 ms at the device's rate.
inline constexpr std::uint32_t device_frame(int rate) { return rate == 48000 ? 480 : 441; }

}  // namespace sonivo
