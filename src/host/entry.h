#pragma once

#include "host/host_state.h"
#include "platform/machine.h"
#include "relay/chains.h"

namespace sonivo {

/// The service until the session ends or its panel window is destroyed, on the thread that gets its windows' messages.
/// The exit code: 1 when a window can't be created, else 0.
int RunService(HostState& host);

/// The same with a state of its own.
int SonivoServiceMain(const Machine& machine, ChainFactory make_chains = MakeChains);

}  // namespace sonivo
