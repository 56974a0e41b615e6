#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/tool/endpoint_properties.h"
#include "apps/tool/machine_chain.h"

namespace sonivo::tool {

/// What the driver keeps for the chains with a microphone.
struct StoredParameters {
  bool key_cancel = false;   ///< of the first chain
  bool beamforming = false;  ///< of the second and third
  std::optional<float> strength;

  bool any() const { return key_cancel || beamforming || strength.has_value(); }
};
StoredParameters stored_parameters(EndpointProperties& endpoint);

/// What the relay looks for with a microphone: the parameters of all chains, those of `chain` from the blob that is
/// given; the strength of the enhancement where it is given, and the GUID that changes are watched by, which stays the
/// one that the endpoint has. Throws Failure for a blob that can't be read or that its chain doesn't take.
std::vector<EndpointProperty> chain_properties(EndpointProperties& endpoint, Chain chain,
                                               const std::optional<std::string>& blob, std::optional<float> strength);

/// Takes all of it back. False when there was nothing.
bool remove_chain_properties(EndpointProperties& endpoint);

}  // namespace sonivo::tool
