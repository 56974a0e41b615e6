#include "quality/noises.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

#include "quality/blows.h"

namespace sonivo::bench {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

Signal gaussian(std::size_t frames, std::mt19937_64& random) {
  std::normal_distribution<double> normal;
  Signal noise(frames);
  for (double& x : noise) x = normal(random);
  return noise;
}

/// First-order sections with a pole and, an octave above it, a zero; one per two octaves makes 3 dB per octave.
Signal pink(std::size_t frames, std::mt19937_64& random) {
  Signal noise = gaussian(frames, random);
  for (double pole_hz = 20; pole_hz < kRateHz / 4; pole_hz *= 4) {
    const double pole = std::exp(-kTurn * pole_hz / kRateHz);
    const double zero = std::exp(-kTurn * 2 * pole_hz / kRateHz);
    double last_x = 0;
    double last_y = 0;
    for (double& x : noise) {
      const double y = x - zero * last_x + pole * last_y;
      last_x = x;
      last_y = x = y;
    }
  }
  return noise;
}

Signal low_passed(Signal noise, double edge_hz) {
  const double pole = std::exp(-kTurn * edge_hz / kRateHz);
  double y = 0;
  for (double& x : noise) x = y = pole * y + (1 - pole) * x;
  return noise;
}

Signal fan(std::size_t frames, std::mt19937_64& random) {
  constexpr std::size_t kHarmonics = 24;
  std::uniform_real_distribution<double> uniform;
  std::array<double, kHarmonics> level;
  std::array<double, kHarmonics> start;
  for (std::size_t h = 0; h < kHarmonics; ++h) {
    level[h] = (0.3 + 0.7 * uniform(random)) / std::sqrt(static_cast<double>(h + 1));
    start[h] = kTurn * uniform(random);
  }
  const double blade_hz = 110 + 10 * uniform(random);
  const double wander_hz = 0.2 + 0.2 * uniform(random);
  Signal hum(frames);
  double phase = 0;
  for (std::size_t n = 0; n < frames; ++n) {
    const double t = static_cast<double>(n) / kRateHz;
    phase += kTurn * blade_hz * (1 + 0.01 * std::sin(kTurn * wander_hz * t)) / kRateHz;
    for (std::size_t h = 0; h < kHarmonics; ++h)
      hum[n] += level[h] * std::sin(static_cast<double>(h + 1) * phase + start[h]);
  }
  const Signal air = low_passed(gaussian(frames, random), 500);
  add(hum, air, std::sqrt(energy(hum) / energy(air)));
  return hum;
}

Signal babble(std::size_t frames, std::size_t voice, std::span<const Voice> voices, std::mt19937_64& random) {
  Signal crowd(frames);
  const std::size_t lead = samples_of_ms(kLeadMs);
  for (std::size_t v = 0; v < voices.size(); ++v) {
    if (v == voice) continue;
    const std::span<const double> speech = std::span(voices[v].speech).subspan(lead);
    for (int copy = 0; copy < 2; ++copy) {
      const std::size_t offset = random() % speech.size();
      for (std::size_t n = 0; n < frames; ++n) crowd[n] += speech[(n + offset) % speech.size()];
    }
  }
  return crowd;
}

double power_of(const Noise& noise, std::size_t blow) {
  if (noise.blows.empty()) return energy(noise.samples) / static_cast<double>(noise.samples.size());
  const auto sounds = sounding(noise, blow);
  double sum = 0;
  std::size_t count = 0;
  for (std::size_t f = 0; f < sounds.size(); ++f) {
    if (!sounds[f]) continue;
    sum += energy(frame(noise.samples, f));
    ++count;
  }
  return sum / static_cast<double>(count * kFrame);
}

}  // namespace

const char* name_of(NoiseKind kind) {
  switch (kind) {
    case NoiseKind::white:
      return "white";
    case NoiseKind::pink:
      return "pink";
    case NoiseKind::fan:
      return "fan";
    case NoiseKind::babble:
      return "babble";
    case NoiseKind::keys:
      return "keys";
    case NoiseKind::thumps:
      return "thumps";
  }
  return "";
}

bool is_stationary(NoiseKind kind) { return kind <= NoiseKind::fan; }
bool is_transient(NoiseKind kind) { return kind >= NoiseKind::keys; }
std::size_t blow_frames(NoiseKind kind) { return samples_of_ms(kind == NoiseKind::keys ? 40 : 100); }

Noise make_noise(NoiseKind kind, std::size_t voice, std::span<const Voice> voices) {
  std::mt19937_64 random(1000 * static_cast<std::uint64_t>(kind) + voice);
  const std::size_t frames = voices[voice].speech.size();
  Noise noise;
  switch (kind) {
    case NoiseKind::white:
      noise.samples = gaussian(frames, random);
      break;
    case NoiseKind::pink:
      noise.samples = pink(frames, random);
      break;
    case NoiseKind::fan:
      noise.samples = fan(frames, random);
      break;
    case NoiseKind::babble:
      noise.samples = babble(frames, voice, voices, random);
      break;
    case NoiseKind::keys:
      noise = key_strokes(frames, random);
      break;
    case NoiseKind::thumps:
      noise = desk_thumps(frames, random);
      break;
  }
  const double gain = 1 / std::sqrt(power_of(noise, blow_frames(kind)));
  for (double& x : noise.samples) x *= gain;
  return noise;
}

}  // namespace sonivo::bench
