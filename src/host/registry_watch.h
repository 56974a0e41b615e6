#pragma once

#include <functional>
#include <memory>

#include "host/host_state.h"

namespace sonivo {

/// Opens the watch over the effect properties of the built-in microphone. 0, or the status that the thread ends with.
std::uint32_t OpenRegistryWatch(HostState& host, std::unique_ptr<FxWatch>& watch);

/// Calls `changed` after each change of an effect property, in the active session only; a change that comes while it
/// isn't active is served once it is. Ends with the pair's stop event, which it resets, or at a failure.
std::uint32_t WatchRegistry(HostState& host, const EventPair& present, std::unique_ptr<FxWatch> watch,
                            const std::function<void()>& changed);

}  // namespace sonivo
