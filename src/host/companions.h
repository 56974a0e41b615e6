#pragma once

#include "base/status.h"
#include "platform/machine.h"

namespace sonivo {

/// Ends the first settings application or test tool that runs in the console's session; 1 when it did.
int SonivoStoreIsOff(const Machine& machine);

/// Starts the music player and returns once the shell that starts it has ended; always 0.
Status EvtPLYCTRL_PlayerIsOn(const Machine& machine);

/// Ends the first music player that runs in the console's session; kFail when there is none.
Status EvtPLYCTRL_PlayerIsOff(const Machine& machine);

}  // namespace sonivo
