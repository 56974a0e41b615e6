#include "apps/tool/pcm_audio.h"

#include <algorithm>
#include <cmath>

namespace sonivo::tool {

namespace {

/// Largest value of the width; the smallest is one below its negative.
std::int64_t largest(const PcmAudio& audio) { return (std::int64_t{1} << (audio.bits - 1)) - 1; }

void append_clipped(PcmAudio& audio, std::int64_t value) {
  value = std::clamp(value, -largest(audio) - 1, largest(audio));
  for (std::size_t i = 0; i < audio.bytes_per_sample(); ++i) {
    audio.bytes.push_back(static_cast<std::byte>((value >> (8 * i)) & 0xFF));
  }
}

}  // namespace

void append_left_justified(PcmAudio& audio, std::int32_t sample) {
  const int dropped_bits = 32 - audio.bits;
  const std::int64_t half = std::int64_t{1} << (dropped_bits - 1);
  append_clipped(audio, (std::int64_t{sample} + half) >> dropped_bits);
}

void append_float(PcmAudio& audio, float sample) {
  if (std::isnan(sample)) sample = 0;
  const double scale = static_cast<double>(largest(audio) + 1);
  append_clipped(audio, std::llround(std::clamp(double{sample}, -1.0, 1.0) * scale));
}

float sample_at(const PcmAudio& audio, std::size_t index) {
  const std::byte* const first = audio.bytes.data() + index * audio.bytes_per_sample();
  std::uint32_t bits = 0;  // left-justified, so that the sign is in place
  for (std::size_t i = 0; i < audio.bytes_per_sample(); ++i) {
    bits |= std::to_integer<std::uint32_t>(first[i]) << (32u - audio.bits + 8u * i);
  }
  return static_cast<float>(static_cast<std::int32_t>(bits)) * 0x1p-31f;
}

}  // namespace sonivo::tool
