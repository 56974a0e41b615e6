#pragma once

#include "host/host_state.h"

namespace sonivo {

/// Has the driver's threads leave their loops and closes the driver. Any thread.
void StopDriverThreads(HostState& host);

/// The same until they are started anew. The driver is told why, after the threads: it may take its time.
void PauseDriverThreads(HostState& host, Pause pause);

/// Switches the driver's meeting mode off where the driver asks for that at power transitions; 0 when it can't be
/// asked.
int AutoExitUpdate(HostState& host);

}  // namespace sonivo
