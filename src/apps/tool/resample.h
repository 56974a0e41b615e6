#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sonivo::tool {

/// The signal at another rate: band-limited interpolation by a Kaiser-windowed sinc (32 zero crossings a side, about
/// 80 dB of stop band), with its band edge at the lower of the two rates. As long as the signal, in seconds.
std::vector<double> resample(std::span<const double> signal, std::uint32_t from_hz, std::uint32_t to_hz);

}  // namespace sonivo::tool
