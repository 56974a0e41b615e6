#pragma once

#include <cstddef>
#include <cstdint>

namespace sonivo {

/// PCM to float, full scale 1.0: 16 bits by 1/32768, 24 bits (packed little-endian) by 1/8388608. Other widths leave
/// `out` as it is.
void pcm_to_float(std::uint16_t bits, const std::byte* pcm, float* out, std::size_t samples);

/// The way back, scaling `in` in place: truncated toward zero and limited to the range of the width. What is no number
/// becomes 0. Other widths leave `pcm` as it is.
void float_to_pcm(std::uint16_t bits, float* in, std::byte* pcm, std::size_t samples);

/// Whether every sample is a finite number.
bool all_finite(const float* samples, std::size_t count);

}  // namespace sonivo
