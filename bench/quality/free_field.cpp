#include "quality/free_field.h"

#include <cmath>
#include <numbers>
#include <random>

#include "quality/systems.h"

namespace sonivo::bench {

namespace {

constexpr double kSpeedOfSound = 343;  // m/s

double sum_energy(const Signal& a, const Signal& b, double sign) {
  Signal sum = a;
  add(sum, b, sign);
  return energy(sum);
}

}  // namespace

FreeField::FreeField(const Signal& ahead, const Signal& other, bool nearer_to_second) : target(ahead) {
  const double between = kSpacing * std::sin(kOffAxis * std::numbers::pi / 180) / kSpeedOfSound * kRateHz;
  Signal aside = scaled(other, std::sqrt(active_power(ahead) / active_power(other)));
  aside.resize(ahead.size());
  interferer[nearer_to_second ? 1 : 0] = aside;
  interferer[nearer_to_second ? 0 : 1] = delayed(aside, between);
  std::mt19937_64 random(11);
  std::normal_distribution<double> normal(0, std::pow(10, kArrayNoiseDb / 20));
  for (Signal& noise : self_noise) {
    noise.resize(ahead.size());
    for (double& x : noise) x = normal(random);
  }
}

std::vector<Signal> FreeField::recorded(double interferer_gain) const {
  std::vector<Signal> microphones(2, target);
  for (std::size_t m = 0; m < 2; ++m) {
    add(microphones[m], interferer[m], interferer_gain);
    add(microphones[m], self_noise[m]);
  }
  return microphones;
}

double interferer_attenuation(const std::function<std::unique_ptr<Enhancer>()>& start, std::size_t channels,
                              const FreeField& field) {
  const auto heard = [&](double gain) {
    return enhance(*start(), std::span<const Signal>(field.recorded(gain)).first(channels));
  };
  const Signal plus = heard(1);
  const Signal minus = heard(-1);
  const double target_gain = sum_energy(plus, minus, 1) / 4 / energy(field.target);
  const double interferer_gain = sum_energy(plus, minus, -1) / 4 / energy(field.interferer[0]);
  return decibel(target_gain / interferer_gain);
}

}  // namespace sonivo::bench
