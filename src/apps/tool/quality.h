#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace sonivo::tool {

// How near a processed signal is to a clean reference of the same length, aligned with it. In dB.

/// Scale-invariant signal-to-distortion ratio, 10 lg(|a s|^2 / |a s - x|^2) with a = <x, s> / <s, s>.
/// J. Le Roux, S. Wisdom, H. Erdogan, J. R. Hershey, "SDR - half-baked or well done?", ICASSP 2019.
/// Infinite, but for rounding, for a scaled copy; nothing when either is silent.
std::optional<double> si_sdr(std::span<const double> reference, std::span<const double> test);

/// Mean over Hann-windowed frames of 30 ms, three quarters overlapping, of the signal-to-noise ratio limited to
/// -10 to 35. J. H. L. Hansen, B. L. Pellom, "An effective quality evaluation protocol for speech enhancement
/// algorithms", ICSLP 1998. Frames in which the reference is digital silence count for nothing; nothing when all are.
std::optional<double> segmental_snr(std::span<const double> reference, std::span<const double> test,
                                    std::uint32_t rate_hz);

/// Level, against full scale, of what the test holds where the reference pauses: frames of 10 ms more than 40 dB below
/// its loudest, and so are both neighbours. Nothing when there is no such frame; minus infinity for digital silence.
std::optional<double> pause_level(std::span<const double> reference, std::span<const double> test,
                                  std::uint32_t rate_hz);

/// The same in those of these frames in which keys are struck: where `strokes`, a recording of them alone of the same
/// length, is less than 30 dB below its loudest frame.
std::optional<double> stroke_level(std::span<const double> reference, std::span<const double> test,
                                   std::span<const double> strokes, std::uint32_t rate_hz);

}  // namespace sonivo::tool
