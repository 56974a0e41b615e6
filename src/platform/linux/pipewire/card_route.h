#pragma once

#include <spa/pod/builder.h>
#include <spa/pod/pod.h>

#include <cstdint>
#include <optional>

#include "platform/linux/pipewire/node_volume.h"

namespace sonivo::pipewire {

/// The way that a sound card's audio takes now, such as the built-in microphones or the headphone jack. The card's own
/// controls, its lamps among them, follow the volume of the route; that of the node would only change the samples.
struct CardRoute {
  std::int32_t index = 0;
  std::uint32_t direction = 0;  ///< SPA_DIRECTION_INPUT for recording
  std::int32_t device = 0;      ///< which of the card's nodes it serves
};

/// None when the param isn't a route that is in use.
std::optional<CardRoute> read_route(const spa_pod& param);

/// The route with what of its volume differs from `before`. A mute is to be kept by the session manager; a level is
/// not: it is set for as long as audio passes, and a program that is killed can't take it back.
const spa_pod* route_volume(spa_pod_builder& builder, const CardRoute& route, const NodeVolume& before,
                            const NodeVolume& wanted);

}  // namespace sonivo::pipewire
