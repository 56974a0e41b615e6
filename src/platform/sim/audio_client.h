#pragma once

#include <memory>

#include "platform/audio_client.h"
#include "platform/sim/endpoint_model.h"

namespace sonivo::sim {

/// A shared-mode client of the endpoint; the stream it opens is made in initialize() for the endpoint's flow.
std::unique_ptr<AudioClient> make_audio_client(std::shared_ptr<EndpointModel> endpoint);

}  // namespace sonivo::sim
