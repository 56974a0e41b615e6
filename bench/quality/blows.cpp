#include "quality/blows.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonivo::bench {

namespace {

double uniform(std::mt19937_64& random, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(random);
}

/// As likely in each octave.
double octaves(std::mt19937_64& random, double low, double high) {
  return std::exp(uniform(random, std::log(low), std::log(high)));
}

/// exp(-t / decay) sin(2 pi f t), from `onset` on.
void ring(Signal& sum, std::size_t onset, double level, double hz, double decay_ms) {
  const double decay = std::exp(-1000 / (decay_ms * kRateHz));
  const double step = 2 * std::numbers::pi * hz / kRateHz;
  double envelope = level;
  for (std::size_t n = onset; n < sum.size() && envelope > 1e-4 * level; ++n, envelope *= decay)
    sum[n] += envelope * std::sin(step * static_cast<double>(n - onset));
}

/// Gaussian noise under exp(-t / decay), with the rise of a first-order low-pass in `smoothing` (0 leaves it white).
void burst(Signal& sum, std::size_t onset, double level, double decay_ms, double smoothing, std::mt19937_64& random) {
  std::normal_distribution<double> normal;
  const double decay = std::exp(-1000 / (decay_ms * kRateHz));
  double envelope = level;
  double y = 0;
  for (std::size_t n = onset; n < sum.size() && envelope > 1e-4 * level; ++n, envelope *= decay) {
    y = smoothing * y + (1 - smoothing) * normal(random);
    sum[n] += envelope * y;
  }
}

struct Resonance {
  double level;
  double hz;
  double decay_ms;
};

/// A key and what it sits on: the same resonances sound when it hits the bottom and when it comes back.
std::vector<Resonance> key_body(std::mt19937_64& random) {
  std::vector<Resonance> body(4 + random() % 4);
  for (Resonance& r : body) {
    r.hz = octaves(random, 250, 9000);
    r.decay_ms = std::clamp(octaves(random, 2, 30) * std::sqrt(1000 / r.hz), 2.0, 30.0);
    r.level = uniform(random, 0.1, 0.5);
  }
  return body;
}

void strike(Signal& sum, std::size_t onset, double level, const std::vector<Resonance>& body, double burst_ms,
            std::mt19937_64& random) {
  burst(sum, onset, 0.5 * level, burst_ms, 0, random);
  for (const Resonance& r : body) ring(sum, onset, level * r.level, r.hz, r.decay_ms);
}

}  // namespace

Noise key_strokes(std::size_t frames, std::mt19937_64& random) {
  Noise noise{Signal(frames), {}};
  double at_ms = uniform(random, 50, 250);
  while (samples_of_ms(at_ms) < frames) {
    const auto body = key_body(random);
    const double level = std::pow(10, uniform(random, -16, 0) / 20);
    const double touch_ms = at_ms;
    const double bottom_ms = touch_ms + uniform(random, 3, 9);
    const double release_ms = bottom_ms + uniform(random, 60, 120);
    strike(noise.samples, samples_of_ms(touch_ms), 0.3 * level, body, 1, random);
    strike(noise.samples, samples_of_ms(bottom_ms), level, body, uniform(random, 2, 6), random);
    strike(noise.samples, samples_of_ms(release_ms), uniform(random, 0.2, 0.5) * level, body, 2, random);
    noise.blows.push_back({samples_of_ms(touch_ms), true});
    noise.blows.push_back({samples_of_ms(release_ms), false});
    at_ms += octaves(random, 70, 400);
  }
  std::sort(noise.blows.begin(), noise.blows.end(), [](const Blow& a, const Blow& b) { return a.onset < b.onset; });
  return noise;
}

Noise desk_thumps(std::size_t frames, std::mt19937_64& random) {
  constexpr double kSoft = 0.95;  // an edge near 400 Hz
  Noise noise{Signal(frames), {}};
  double at_ms = uniform(random, 300, 900);
  while (samples_of_ms(at_ms) < frames) {
    const std::size_t onset = samples_of_ms(at_ms);
    const double level = std::pow(10, uniform(random, -12, 0) / 20);
    for (int resonance = 0; resonance < 2; ++resonance)
      ring(noise.samples, onset, level, octaves(random, 35, 140), uniform(random, 30, 120));
    burst(noise.samples, onset, 2 * level, 5, kSoft, random);
    noise.blows.push_back({onset, false});
    at_ms += uniform(random, 500, 1800);
  }
  return noise;
}

std::vector<bool> sounding(const Noise& noise, std::size_t blow) {
  std::vector<bool> frames(noise.samples.size() / kFrame);
  for (const Blow& b : noise.blows) {
    const std::size_t last = std::min((b.onset + blow) / kFrame + 1, frames.size());
    for (std::size_t f = b.onset / kFrame; f < last; ++f) frames[f] = true;
  }
  return frames;
}

}  // namespace sonivo::bench
