#pragma once

#include <iosfwd>

#include "apps/tool/latency.h"
#include "apps/tool/simulated_relay.h"

namespace sonivo::tool {

/// Writes what a run was like as a table of a name and a value a line.
void print_relay_report(std::ostream& output, Direction direction, const RelayedAudio& relayed, const Latency& latency);

}  // namespace sonivo::tool
