#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sonivo::tool {

/// Interleaved float audio, full scale 1.0.
struct FloatAudio {
  std::uint32_t rate_hz = 48000;
  std::uint16_t channels = 1;
  std::vector<float> samples;

  std::size_t frames() const { return samples.size() / channels; }
};

}  // namespace sonivo::tool
