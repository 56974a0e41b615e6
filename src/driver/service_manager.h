#pragma once

#include <chrono>
#include <optional>

namespace sonivo::driver {

/// Tells the service manager, if there is one, "READY=1" and the like.
void tell_service_manager(const char* state);

/// How often the service manager, if there is one that watches this process, is to be told "WATCHDOG=1": twice in the
/// time after which it restarts the process.
std::optional<std::chrono::milliseconds> watchdog_period();

}  // namespace sonivo::driver
