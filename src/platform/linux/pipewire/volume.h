#pragma once

#include <memory>
#include <string>

#include "platform/endpoint_volume.h"
#include "platform/linux/pipewire/graph.h"

namespace sonivo::pipewire {

/// Mute and level of the node of this name. A change by the server or another client is told without a context.
std::shared_ptr<EndpointVolume> make_volume(Graph& graph, std::string id);

}  // namespace sonivo::pipewire
