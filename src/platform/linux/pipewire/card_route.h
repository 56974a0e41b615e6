#pragma once

#include <spa/pod/builder.h>
#include <spa/pod/pod.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/pipewire/node_volume.h"
#include "platform/linux/pipewire/registry.h"

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

/// The routes in use on the server's sound cards. With the loop locked, all of it.
class CardRoutes {
 public:
  void add(const Registry& registry, std::uint32_t card);
  void remove(std::uint32_t card) { cards_.erase(card); }
  void clear() { cards_.clear(); }
  /// That of one of the card's nodes; null when it has none.
  const CardRoute* find(std::uint32_t card, std::int32_t device, std::uint32_t direction) const;

 private:
  struct Card {
    std::vector<CardRoute> routes;  ///< at most one for a device and direction
    std::unique_ptr<BoundObject> object;
  };

  std::map<std::uint32_t, Card> cards_;
};

}  // namespace sonivo::pipewire
