#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sonivo::bench {

/// One channel at 48 kHz, full scale 1.
using Signal = std::vector<double>;

inline constexpr std::uint32_t kRateHz = 48000;

inline constexpr std::size_t samples_of_ms(double ms) { return static_cast<std::size_t>(ms * kRateHz / 1000 + 0.5); }

inline constexpr std::size_t kFrame = samples_of_ms(10);
/// Frame number f of 10 ms.
inline std::span<const double> frame(const Signal& signal, std::size_t f) {
  return std::span(signal).subspan(f * kFrame, kFrame);
}

double decibel(double power_ratio);
double energy(std::span<const double> signal);
/// Mean power of the frames of 10 ms that are no pause.
double active_power(const Signal& signal);
/// Whether each frame of 10 ms is more than 40 dB below the loudest.
std::vector<bool> pauses(const Signal& signal);

/// sum += gain * signal, as far as both reach.
void add(Signal& sum, const Signal& signal, double gain = 1);
Signal scaled(const Signal& signal, double gain);
/// The signal later by a number of samples that need not be whole, by a windowed sinc; as long as it was.
Signal delayed(const Signal& signal, double samples);

}  // namespace sonivo::bench
