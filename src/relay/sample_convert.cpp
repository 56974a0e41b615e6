#include "relay/sample_convert.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace sonivo {
namespace {

constexpr float kScale16 = 32768.0f;
constexpr float kScale24 = 8388608.0f;

/// Truncates toward zero; what lies outside [low, high] goes to the nearer end, what is no number to 0. Written as
/// selections, so that loops over it become vector code.
std::int32_t truncate_limited(float value, float low, float high) {
  const float number = value == value ? value : 0.0f;
  const float limited_below = number < low ? low : number;
  const float limited = limited_below > high ? high : limited_below;
  return static_cast<std::int32_t>(limited);
}

std::int32_t load24(const std::byte* p) {
  const auto bits = std::to_integer<std::uint32_t>(p[0]) << 8 | std::to_integer<std::uint32_t>(p[1]) << 16 |
                    std::to_integer<std::uint32_t>(p[2]) << 24;
  return static_cast<std::int32_t>(bits) >> 8;
}

void store24(std::byte* p, std::int32_t value) {
  p[0] = static_cast<std::byte>(value);
  p[1] = static_cast<std::byte>(value >> 8);
  p[2] = static_cast<std::byte>(value >> 16);
}

}  // namespace

void pcm_to_float(std::uint16_t bits, const std::byte* pcm, float* out, std::size_t samples) {
  if (bits == 16) {
    for (std::size_t i = 0; i < samples; ++i) {
      std::int16_t sample;
      std::memcpy(&sample, pcm + 2 * i, sizeof sample);
      out[i] = static_cast<float>(sample) / kScale16;
    }
  } else if (bits == 24) {
    for (std::size_t i = 0; i < samples; ++i) out[i] = static_cast<float>(load24(pcm + 3 * i)) / kScale24;
  }
}

void float_to_pcm(std::uint16_t bits, float* in, std::byte* pcm, std::size_t samples) {
  if (bits == 16) {
    for (std::size_t i = 0; i < samples; ++i) {
      in[i] *= kScale16;
      const auto sample = static_cast<std::int16_t>(truncate_limited(in[i], -32768.0f, 32767.0f));
      std::memcpy(pcm + 2 * i, &sample, sizeof sample);
    }
  } else if (bits == 24) {
    for (std::size_t i = 0; i < samples; ++i) {
      in[i] *= kScale24;
      store24(pcm + 3 * i, truncate_limited(in[i], -8388608.0f, 8388607.0f));
    }
  }
}

bool all_finite(const float* samples, std::size_t count) {
  std::size_t finite = 0;
  for (std::size_t i = 0; i < count; ++i) finite += std::abs(samples[i]) <= std::numeric_limits<float>::max() ? 1u : 0u;
  return finite == count;
}

}  // namespace sonivo
