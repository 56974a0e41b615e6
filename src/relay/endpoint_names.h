#pragma once

#include <memory>
#include <string>

#include "platform/endpoints.h"

namespace sonivo {

/// Part of the friendly name by which the virtual endpoints are known.
inline constexpr char kVirtualEndpointName[] = "Norvell Audio Relay";

/// Friendly name of an endpoint, and which of the two steps to it failed.
enum class NameStep { none, open_property_store, get_value };
Status ReadFriendlyName(Endpoint& endpoint, std::string& name, NameStep* failed_step = nullptr);

/// False also when the name can't be read.
bool IsVirtualEndpoint(Endpoint& endpoint);

/// Volume of the active virtual endpoint, of the last one when there are several. `volume` stays empty when there is
/// none. Answers the status of the last step.
Status GetVirtualEndpointVolume(Endpoints& endpoints, DataFlow flow, std::shared_ptr<EndpointVolume>& volume);

/// Engine period of the first active virtual endpoint, in frames.
Status GetVirtualEndpointPeriod(Endpoints& endpoints, DataFlow flow, std::uint32_t& period_frames);

}  // namespace sonivo
