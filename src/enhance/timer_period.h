#pragma once

#include <cstdint>

namespace sonivo {

/// Asks that the machine's timers tick every millisecond, and takes one such request back. Where timers are fine
/// anyway, as here, requests are only counted; on a machine with coarse ones its calls belong here.
void request_1ms_timer();
void give_back_1ms_timer();

/// Requests of this process that were not given back.
std::int64_t open_1ms_timer_requests();

}  // namespace sonivo
