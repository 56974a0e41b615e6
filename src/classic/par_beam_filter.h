#pragma once

#include <cstddef>
#include <span>

#include "classic/param_blobs.h"

namespace sonivo::classic {

inline constexpr int kBeamTaps = kPartitions * kHop;

/// Spectra of a beam filter of 384 taps, cut into partitions of 192 taps, each transformed over 512 points. The
/// partition with the later taps comes first.
/// taps: 384 little-endian doubles (3072 bytes), the content of a filter file.
void make_filter_spectra(std::span<const std::byte> taps, ComplexFloat (&spectra)[kPartitions][kBeamBins]);

}  // namespace sonivo::classic
