#pragma once

#include <string>

namespace sonivo::linux {

/// Tells the session's screen saver that the user is there, which puts off the next blanking; an address of the bus
/// other than the user's own. False when there is no such bus. Whether a screen saver listens isn't known.
bool simulate_user_activity(const std::string& address = {});

}  // namespace sonivo::linux
