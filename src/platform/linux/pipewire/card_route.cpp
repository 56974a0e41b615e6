#include "platform/linux/pipewire/card_route.h"

#include <spa/param/route.h>
#include <spa/pod/parser.h>

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

}  // namespace sonivo::pipewire
