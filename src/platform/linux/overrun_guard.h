#pragma once

#include <cstdint>

namespace sonivo::linux {

/// Limits how long a thread in real time may compute without a wait (RLIMIT_RTTIME): at half of it the threads under
/// guard fall back to ordinary scheduling. False when the limit can't be set.
bool limit_real_time(std::uint64_t longest_us);

/// Puts the calling thread under guard, until it ends.
void guard_this_thread();

}  // namespace sonivo::linux
