#pragma once

#include <memory>
#include <string>

#include "platform/endpoints.h"
#include "platform/sim/endpoint_model.h"

namespace sonivo::sim {

/// The program's view of an endpoint.
std::shared_ptr<Endpoint> make_endpoint(std::shared_ptr<EndpointModel> model);

/// Id of an object from make_endpoint().
const std::string& id_of(const Endpoint& endpoint);

}  // namespace sonivo::sim
