#pragma once

#include "platform/machine.h"
#include "relay/chains.h"

namespace sonivo {

/// The service, on this machine, until the session ends or its panel window is destroyed. The exit code: 1 when a
/// window can't be created, else 0.
int SonivoServiceMain(const Machine& machine, ChainFactory make_chains = MakeChains);

}  // namespace sonivo
