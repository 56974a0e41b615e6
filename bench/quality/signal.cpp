#include "quality/signal.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonivo::bench {

namespace {

constexpr double kPause = 1e-4;  // 40 dB below the loudest frame

std::vector<double> frame_energies(const Signal& signal) {
  std::vector<double> energies(signal.size() / kFrame);
  for (std::size_t f = 0; f < energies.size(); ++f) energies[f] = energy(frame(signal, f));
  return energies;
}

}  // namespace

double decibel(double power_ratio) { return 10 * std::log10(power_ratio); }

double energy(std::span<const double> signal) {
  double sum = 0;
  for (const double x : signal) sum += x * x;
  return sum;
}

std::vector<bool> pauses(const Signal& signal) {
  const auto energies = frame_energies(signal);
  const double loudest = *std::max_element(energies.begin(), energies.end());
  std::vector<bool> quiet;
  for (const double e : energies) quiet.push_back(e <= kPause * loudest);
  return quiet;
}

double active_power(const Signal& signal) {
  const auto energies = frame_energies(signal);
  const auto quiet = pauses(signal);
  double sum = 0;
  std::size_t frames = 0;
  for (std::size_t f = 0; f < energies.size(); ++f) {
    if (quiet[f]) continue;
    sum += energies[f];
    ++frames;
  }
  return sum / static_cast<double>(frames * kFrame);
}

void add(Signal& sum, const Signal& signal, double gain) {
  const std::size_t n = std::min(sum.size(), signal.size());
  for (std::size_t i = 0; i < n; ++i) sum[i] += gain * signal[i];
}

Signal scaled(const Signal& signal, double gain) {
  Signal result(signal.size());
  add(result, signal, gain);
  return result;
}

Signal delayed(const Signal& signal, double samples) {
  constexpr int kReach = 32;
  const double whole = std::floor(samples);
  const double fraction = samples - whole;
  std::vector<double> taps;  // tap j stands at j - kReach + 1
  for (int j = 0; j < 2 * kReach; ++j) {
    const double x = j - kReach + 1 - fraction;
    const double sinc = x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    taps.push_back(sinc * (0.5 + 0.5 * std::cos(std::numbers::pi * x / (kReach + 1))));
  }
  const auto size = static_cast<std::ptrdiff_t>(signal.size());
  const auto shift = static_cast<std::ptrdiff_t>(whole) - kReach + 1;
  Signal result(signal.size());
  for (std::ptrdiff_t n = 0; n < size; ++n) {
    for (std::ptrdiff_t j = 0; j < 2 * kReach; ++j) {
      const std::ptrdiff_t from = n - shift - j;
      if (from >= 0 && from < size)
        result[static_cast<std::size_t>(n)] +=
            taps[static_cast<std::size_t>(j)] * signal[static_cast<std::size_t>(from)];
    }
  }
  return result;
}

}  // namespace sonivo::bench
