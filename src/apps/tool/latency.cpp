#include "apps/tool/latency.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "apps/tool/correlation.h"

namespace sonivo::tool {

namespace {

// A whole file as floats would be twice as much memory as it is itself, so they are made for a stretch at a time.
std::vector<float> samples_of(const FloatAudio& audio, std::size_t first, std::size_t frames) {
  const auto samples = std::span(audio.samples).subspan(first * audio.channels, frames * audio.channels);
  return {samples.begin(), samples.end()};
}
std::vector<float> samples_of(const PcmAudio& audio, std::size_t first, std::size_t frames) {
  std::vector<float> samples(frames * audio.channels);
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = sample_at(audio, first * audio.channels + i);
  return samples;
}

/// First frame of the earliest window, on a grid of half windows, that is about as energetic as the best one.
template <class Audio>
std::size_t most_energetic_window(const Audio& audio, std::size_t window, double& window_energy) {
  const std::size_t step = std::max<std::size_t>(window / 2, 1);
  std::vector<double> energies;
  for (std::size_t first = 0; first + window <= audio.frames(); first += step) {
    const std::vector<float> samples = samples_of(audio, first, window);
    energies.push_back(product(samples, samples.data()));
  }
  const double highest = *std::max_element(energies.begin(), energies.end());
  const auto found =
      std::find_if(energies.begin(), energies.end(), [highest](double e) { return e >= kEqualEnergy * highest; });
  window_energy = *found;
  return step * static_cast<std::size_t>(found - energies.begin());
}

template <class Audio>
Latency measure(const Audio& input, const Audio& output, std::size_t max_frames) {
  const std::size_t window = std::min({kWindowFrames, input.frames(), output.frames()});
  double window_energy = 0;
  const std::size_t first = window == 0 ? 0 : most_energetic_window(input, window, window_energy);
  if (window_energy == 0) return {Latency::Outcome::input_silent};
  if (first + window > output.frames()) return {Latency::Outcome::no_resemblance};

  const std::size_t delays = std::min(max_frames, output.frames() - first - window) + 1;
  const std::vector<float> wanted = samples_of(input, first, window);
  const std::vector<float> heard = samples_of(output, first, window + delays - 1);

  const std::vector<double> heard_energy = running_energy(heard);

  Latency best{Latency::Outcome::no_resemblance};
  double best_correlation = kResemblance;
  for (std::size_t delay = 0; delay < delays; ++delay) {
    const std::size_t start = delay * input.channels;
    const double energy_there = heard_energy[start + wanted.size()] - heard_energy[start];
    if (energy_there <= 0) continue;
    const double correlation = product(wanted, heard.data() + start) / std::sqrt(window_energy * energy_there);
    if (correlation > best_correlation + kEqualCorrelation) {
      best_correlation = correlation;
      best = {Latency::Outcome::measured, delay};
    }
  }
  return best;
}

}  // namespace

Latency measure_latency(const FloatAudio& input, const FloatAudio& output, std::size_t max_frames) {
  return measure(input, output, max_frames);
}

Latency measure_latency(const PcmAudio& input, const PcmAudio& output, std::size_t max_frames) {
  return measure(input, output, max_frames);
}

}  // namespace sonivo::tool
