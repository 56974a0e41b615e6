#pragma once

#include "base/status.h"

namespace sonivo {

/// Failures of endpoints and their shared-mode clients.
inline constexpr Status kNotInitialized = status_bits(0x88890001);
inline constexpr Status kAlreadyInitialized = status_bits(0x88890002);
inline constexpr Status kWrongEndpointType = status_bits(0x88890003);
inline constexpr Status kDeviceInvalidated = status_bits(0x88890004);
inline constexpr Status kNotStopped = status_bits(0x88890005);
inline constexpr Status kBufferTooLarge = status_bits(0x88890006);
inline constexpr Status kOutOfOrder = status_bits(0x88890007);
inline constexpr Status kUnsupportedFormat = status_bits(0x88890008);
inline constexpr Status kInvalidSize = status_bits(0x88890009);
inline constexpr Status kEventNotSet = status_bits(0x88890014);
/// Successes that say something.
inline constexpr Status kBufferEmpty = 0x08890001;
inline constexpr Status kWasStopped = 1;

}  // namespace sonivo
