#pragma once

#include <string>

#include "host/host_state.h"

namespace sonivo {

/// Id of the endpoint that the driver names for this direction, under m_csDriver; empty when it names none or can't be
/// read.
std::string ReadEndpointId(HostState& host, DataFlow flow);
/// The same, and says so where there is none.
std::string FindEndpointId(HostState& host, DataFlow flow);

}  // namespace sonivo
