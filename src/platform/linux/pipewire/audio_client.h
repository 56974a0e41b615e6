#pragma once

#include <memory>

#include "platform/audio_client.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/graph.h"
#include "platform/linux/pipewire/pacer.h"

namespace sonivo::pipewire {

/// A shared-mode client of the endpoint, which may be gone by the time it is initialised: a stream of its own in the
/// graph, linked to that endpoint and no other. Packets have at most 10 ms, however long the graph's turns are, and
/// come evenly. When the endpoint or the server goes the event is set, and the operations fail with kDeviceInvalidated.
std::unique_ptr<AudioClient> make_audio_client(Connection& connection, Graph& graph, Pacer& pacer,
                                               const EndpointFacts& endpoint);

}  // namespace sonivo::pipewire
