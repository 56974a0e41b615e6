#pragma once

#include <cstddef>

#include "apps/tool/float_audio.h"
#include "apps/tool/pcm_audio.h"

namespace sonivo::tool {

/// How much later a signal appears in a recording of it.
struct Latency {
  enum class Outcome { measured, input_silent, no_resemblance };
  Outcome outcome = Outcome::input_silent;
  std::size_t frames = 0;
};

/// Searches delays of 0 to max_frames for the highest normalised correlation of the input's most energetic stretch with
/// the output. Of equals the first counts: the earliest stretch, and the shortest delay. Both have the same channels.
Latency measure_latency(const FloatAudio& input, const FloatAudio& output, std::size_t max_frames);
Latency measure_latency(const PcmAudio& input, const PcmAudio& output, std::size_t max_frames);

}  // namespace sonivo::tool
