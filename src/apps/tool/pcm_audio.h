#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/wave_format.h"

namespace sonivo::tool {

/// Interleaved integer PCM as a stream carries it: packed little-endian samples of 16 or 24 bits.
struct PcmAudio {
  std::uint32_t rate_hz = 48000;
  std::uint16_t bits = 16;
  std::uint16_t channels = 1;
  std::vector<std::byte> bytes;

  std::size_t bytes_per_sample() const { return bits / 8u; }
  std::size_t bytes_per_frame() const { return bytes_per_sample() * channels; }
  std::size_t samples() const { return bytes.size() / bytes_per_sample(); }
  std::size_t frames() const { return bytes.size() / bytes_per_frame(); }
  WAVEFORMATEXTENSIBLE format() const { return pcm_format(rate_hz, bits, channels); }
};

/// Appends a sample that has its most significant bit in bit 31; narrower ones are rounded to nearest and clipped.
void append_left_justified(PcmAudio& audio, std::int32_t sample);

/// Appends a sample of the range -1 to 1, rounded to nearest; what lies outside is clipped, NaN becomes 0.
void append_float(PcmAudio& audio, float sample);

/// Sample at an index that counts all channels, in -1 to 1.
float sample_at(const PcmAudio& audio, std::size_t index);

}  // namespace sonivo::tool
