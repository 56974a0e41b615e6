#include "enhance/high_pass.h"

#include <cmath>

namespace sonivo {
namespace {

struct Section {
  float b0, b1, b2, a1, a2;

  float step(float x, float& s0, float& s1) const {
    const float y = b0 * x + s0;
    s0 = a1 * y + b1 * x + s1;
    s1 = a2 * y + b2 * x;
    return y;
  }
};

constexpr Section kFirst{0.28520438f, -0.57037133f, 0.28520438f, 1.9024411f, -0.90729463f};
constexpr Section kSecond{3.1321421f, -6.2622056f, 3.1321421f, 1.9855428f, -0.98762095f};

/// Far below half a 16-bit step, and far above the numbers that machines reckon slowly with: silence would end in them.
constexpr float kInaudible = 1e-25f;

}  // namespace

void HighPass::process(std::span<float> signal) {
  auto [s0, s1, s2, s3] = dc_state_;
  for (float& sample : signal) sample = kSecond.step(kFirst.step(sample, s0, s1), s2, s3);
  dc_state_ = {s0, s1, s2, s3};
  for (float& s : dc_state_) {
    if (!std::isfinite(s) || std::abs(s) < kInaudible) s = 0.0f;
  }
}

}  // namespace sonivo
