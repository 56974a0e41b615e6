#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace sonivo::tool {

/// Short-time objective intelligibility of `processed` against `clean`, about 0 to 1: mean correlation of the envelopes
/// of 15 third-octave bands from 150 Hz over segments of 384 ms, at 10 kHz, over the frames within 40 dB of the
/// loudest. C. H. Taal, R. C. Hendriks, R. Heusdens, J. Jensen, "An algorithm for intelligibility prediction of
/// time-frequency weighted noisy speech", IEEE Trans. Audio, Speech, Language Process. 19(7), 2011. Both are aligned
/// and as long; nothing when less than one segment of them is speech.
std::optional<double> stoi(std::span<const double> clean, std::span<const double> processed, std::uint32_t rate_hz);

}  // namespace sonivo::tool
