#include "feature_extractor/dither.h"

#include <cmath>
#include <numbers>

namespace sonivo {

float Dither::uniform() {
  state_ = state_ * 1664525u + 1013904223u;
  return static_cast<float>(((state_ >> 17) + 1) / 32769.0);
}

void Dither::add(float amount, std::vector<float>& samples) {
  for (float& sample : samples) {
    const float u1 = uniform(), u2 = uniform();
    sample += amount * std::sqrt(-2.0f * std::log(u1)) * std::cos(2.0f * std::numbers::pi_v<float> * u2);
  }
}

}  // namespace sonivo
