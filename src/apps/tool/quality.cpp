#include "apps/tool/quality.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace sonivo::tool {

namespace {

double product(std::span<const double> a, std::span<const double> b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

double decibel(double power_ratio) { return 10 * std::log10(power_ratio); }

}  // namespace

std::optional<double> si_sdr(std::span<const double> reference, std::span<const double> test) {
  const double energy = product(reference, reference);
  if (energy == 0 || product(test, test) == 0) return std::nullopt;
  const double a = product(test, reference) / energy;
  double error = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) error += std::pow(a * reference[i] - test[i], 2);
  return decibel(a * a * energy / error);
}

std::optional<double> segmental_snr(std::span<const double> reference, std::span<const double> test,
                                    std::uint32_t rate_hz) {
  constexpr double kLowest = -10;
  constexpr double kHighest = 35;
  const std::size_t frame = rate_hz * 30 / 1000;
  const std::size_t hop = frame / 4;
  std::vector<double> weight(frame);
  for (std::size_t i = 0; i < frame; ++i) {
    const double hann =
        0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i + 1) / static_cast<double>(frame + 1));
    weight[i] = hann * hann;
  }

  double sum = 0;
  std::size_t frames = 0;
  for (std::size_t at = 0; at + frame <= reference.size(); at += hop) {
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 0; i < frame; ++i) {
      signal += weight[i] * std::pow(reference[at + i], 2);
      noise += weight[i] * std::pow(reference[at + i] - test[at + i], 2);
    }
    if (signal == 0) continue;
    sum += noise == 0 ? kHighest : std::clamp(decibel(signal / noise), kLowest, kHighest);
    ++frames;
  }
  if (frames == 0) return std::nullopt;
  return sum / static_cast<double>(frames);
}

namespace {

/// Of frames of 10 ms.
std::vector<double> frame_energies(std::span<const double> signal, std::size_t frame) {
  std::vector<double> energy(signal.size() / frame);
  for (std::size_t f = 0; f < energy.size(); ++f) {
    const auto samples = signal.subspan(f * frame, frame);
    energy[f] = product(samples, samples);
  }
  return energy;
}

double loudest(const std::vector<double>& energy) {
  return energy.empty() ? 0 : *std::max_element(energy.begin(), energy.end());
}

/// Of the test in those pauses of the reference that `counts` takes.
template <class Counts>
std::optional<double> level_in_pauses(std::span<const double> reference, std::span<const double> test,
                                      std::size_t frame, Counts counts) {
  constexpr double kPauseBelowLoudest = 1e-4;  // 40 dB
  const std::vector<double> energy = frame_energies(reference, frame);
  const std::size_t frames = energy.size();
  const double limit = kPauseBelowLoudest * loudest(energy);
  const auto quiet = [&](std::size_t f) { return energy[f] < limit; };

  double sum = 0;
  std::size_t count = 0;
  for (std::size_t f = 0; f < frames; ++f) {
    const bool pauses = quiet(f) && (f == 0 || quiet(f - 1)) && (f + 1 == frames || quiet(f + 1));
    if (!pauses || !counts(f)) continue;
    const auto samples = test.subspan(f * frame, frame);
    sum += product(samples, samples);
    count += frame;
  }
  if (count == 0) return std::nullopt;
  return decibel(sum / static_cast<double>(count));
}

}  // namespace

std::optional<double> pause_level(std::span<const double> reference, std::span<const double> test,
                                  std::uint32_t rate_hz) {
  return level_in_pauses(reference, test, rate_hz / 100, [](std::size_t) { return true; });
}

std::optional<double> stroke_level(std::span<const double> reference, std::span<const double> test,
                                   std::span<const double> strokes, std::uint32_t rate_hz) {
  constexpr double kStrokeBelowLoudest = 1e-3;  // 30 dB
  const std::vector<double> energy = frame_energies(strokes, rate_hz / 100);
  const double limit = kStrokeBelowLoudest * loudest(energy);
  return level_in_pauses(reference, test, rate_hz / 100, [&](std::size_t f) { return energy[f] > limit; });
}

}  // namespace sonivo::tool
