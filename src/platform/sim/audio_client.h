#pragma once

#include <memory>

#include "platform/audio_client.h"
#include "platform/sim/endpoint_model.h"

namespace sonivo::sim {

/// Failures of shared-mode clients.
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

/// A shared-mode client of the endpoint; the stream it opens is made in initialize() for the endpoint's flow.
std::unique_ptr<AudioClient> make_audio_client(std::shared_ptr<EndpointModel> endpoint);

}  // namespace sonivo::sim
