#include "quality/recording.h"

#include <cmath>
#include <random>

#include "quality/blows.h"

namespace sonivo::bench {

Signal self_noise(std::size_t frames) {
  std::mt19937_64 random(7);
  std::normal_distribution<double> normal(0, std::pow(10, kSelfNoiseDb / 20));
  Signal noise(frames);
  for (double& x : noise) x = normal(random);
  return noise;
}

Recording::Recording(const Signal& clean, const Noise& source, NoiseKind kind, double snr_db)
    : speech(clean), noise(scaled(source.samples, std::sqrt(active_power(clean)) * std::pow(10, -snr_db / 20))) {
  mixture = speech;
  add(mixture, noise);
  add(mixture, self_noise(mixture.size()));
  if (is_transient(kind)) blows = sounding(source, blow_frames(kind));
  for (const Blow& blow : source.blows) {
    if (blow.press) presses.push_back(blow.onset);
  }
}

Signal Recording::with_noise(double gain) const {
  Signal other = mixture;
  add(other, noise, gain);
  return other;
}

}  // namespace sonivo::bench
