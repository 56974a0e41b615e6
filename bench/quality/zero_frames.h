#pragma once

#include <cstddef>

#include "quality/signal.h"

namespace sonivo::bench {

/// Which frames of 192 samples a chain takes for silence: it hands them on at once and stands still meanwhile.
enum class ZeroTest {
  last_sample,  ///< the last sample is 0, as the key-cancel chain tests it
  all_samples,  ///< all are, as the beamforming chain does
};

/// What a chain that changes nothing makes of the speech, its delay taken back: what it still holds when silence sets
/// in comes in front of the next word. No parameters get nearer to the speech than this.
Signal unchanged(const Signal& speech, std::size_t delay, ZeroTest test);

}  // namespace sonivo::bench
