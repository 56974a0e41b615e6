#include "support/signals.h"

#include <algorithm>

namespace sonivo::test {

std::vector<std::byte> numbered_pcm(std::size_t frames, std::uint16_t bits, std::uint16_t channels,
                                    std::uint32_t seed) {
  const std::size_t width = bits / 8u;
  std::vector<std::byte> pcm(frames * channels * width);
  std::uint32_t state = seed;
  for (std::size_t i = 0; i < pcm.size(); i += width) {
    state = state * 1664525u + 1013904223u;
    // The lowest bit is set, so that no sample is zero.
    const std::uint32_t sample = (state >> 8) | 1u;
    for (std::size_t b = 0; b < width; ++b) pcm[i + b] = static_cast<std::byte>(sample >> (8 * b));
  }
  return pcm;
}

std::size_t leading_zero_frames(const std::vector<std::byte>& pcm, std::size_t block_align) {
  const auto first = std::find_if(pcm.begin(), pcm.end(), [](std::byte b) { return b != std::byte{0}; });
  return static_cast<std::size_t>(first - pcm.begin()) / block_align;
}

}  // namespace sonivo::test
