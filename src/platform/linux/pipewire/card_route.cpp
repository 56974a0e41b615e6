#include "platform/linux/pipewire/card_route.h"

#include <spa/param/route.h>
#include <spa/pod/parser.h>

#include <algorithm>

namespace sonivo::pipewire {
std::optional<CardRoute> read_route(const spa_pod& param) {
  CardRoute route;
  const int found = spa_pod_parse_object(
      &param, SPA_TYPE_OBJECT_ParamRoute, nullptr, SPA_PARAM_ROUTE_index, SPA_POD_Int(&route.index),
      SPA_PARAM_ROUTE_direction, SPA_POD_Id(&route.direction), SPA_PARAM_ROUTE_device, SPA_POD_Int(&route.device));
  return found >= 0 ? std::optional(route) : std::nullopt;
}

const spa_pod* route_volume(spa_pod_builder& builder, const CardRoute& route, const NodeVolume& before,
                            const NodeVolume& wanted) {
  spa_pod_frame frame;
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&builder, route.index);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_device, 0);
  spa_pod_builder_int(&builder, route.device);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
  volume_props(builder, before, wanted);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_save, 0);
  spa_pod_builder_bool(&builder, wanted.channels == before.channels);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

void CardRoutes::add(const Registry& registry, std::uint32_t id) {
  static const pw_device_events events = [] {
    pw_device_events table{};
    table.version = PW_VERSION_DEVICE_EVENTS;
    // A subscription misses changes that follow each other at once.
    table.info = [](void* card, const pw_device_info* info) {
      if ((info->change_mask & PW_DEVICE_CHANGE_MASK_PARAMS) == 0) return;
      auto* const device = static_cast<Card*>(card)->object->get<pw_device>();
      pw_device_enum_params(device, 0, SPA_PARAM_Route, 0, kAllParams, nullptr);
    };
    table.param = [](void* card, int, std::uint32_t param_id, std::uint32_t, std::uint32_t, const spa_pod* param) {
      if (param_id != SPA_PARAM_Route || param == nullptr) return;
      const auto route = read_route(*param);
      if (!route) return;
      auto& routes = static_cast<Card*>(card)->routes;
      std::erase_if(routes, [&](const CardRoute& each) {
        return each.device == route->device && each.direction == route->direction;
      });
      routes.push_back(*route);
    };
    return table;
  }();
  Card& card = cards_[id];
  card.object =
      std::make_unique<BoundObject>(registry, id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, &events, &card);
}

const CardRoute* CardRoutes::find(std::uint32_t id, std::int32_t device, std::uint32_t direction) const {
  const auto card = cards_.find(id);
  if (card == cards_.end()) return nullptr;
  for (const CardRoute& each : card->second.routes) {
    if (each.device == device && each.direction == direction) return &each;
  }
  return nullptr;
}

}  // namespace sonivo::pipewire
