#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sonivo::test {

/// Frames of packed PCM in which every sample differs from zero and from its neighbours, so that a swap, a shift or a
/// loss shows: channel c of frame f is a counter from a multiplicative generator.
std::vector<std::byte> numbered_pcm(std::size_t frames, std::uint16_t bits, std::uint16_t channels,
                                    std::uint32_t seed = 1);

/// Length of the run of zero bytes at the head, in whole frames.
std::size_t leading_zero_frames(const std::vector<std::byte>& pcm, std::size_t block_align);

}  // namespace sonivo::test
