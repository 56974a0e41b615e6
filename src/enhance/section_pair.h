#pragma once

#include <array>
#include <cmath>
#include <span>

namespace sonivo {

/// A second-order section in transposed direct form, with state s0, s1:
///   y = b0 x + s0
///   s0 = a1 y + b1 x + s1
///   s1 = a2 y + b2 x
struct Section {
  float b0, b1, b2, a1, a2;

  float step(float x, float& s0, float& s1) const {
    const float y = b0 * x + s0;
    s0 = a1 * y + b1 * x + s1;
    s1 = a2 * y + b2 * x;
    return y;
  }
};

/// Two sections in series.
template <const Section& kFirst, const Section& kSecond>
class SectionPair {
 public:
  void reset() { state_ = {}; }

  /// In place. Between calls, state that is no number or can't be heard any more becomes 0.
  void process(std::span<float> signal) {
    auto [s0, s1, s2, s3] = state_;
    for (float& sample : signal) sample = kSecond.step(kFirst.step(sample, s0, s1), s2, s3);
    state_ = {s0, s1, s2, s3};
    for (float& s : state_) {
      if (!std::isfinite(s) || std::abs(s) < kInaudible) s = 0.0f;
    }
  }

 private:
  /// Far below half a 16-bit step, and far above the numbers that machines reckon slowly with: silence would end in
  /// them.
  static constexpr float kInaudible = 1e-25f;

  std::array<float, 4> state_{};  // s0, s1 of the first section, then of the second
};

inline constexpr Section kHighPassFirst{0.28520438f, -0.57037133f, 0.28520438f, 1.9024411f, -0.90729463f};
inline constexpr Section kHighPassSecond{3.1321421f, -6.2622056f, 3.1321421f, 1.9855428f, -0.98762095f};
/// Of the model's input, at 16 kHz.
using HighPass = SectionPair<kHighPassFirst, kHighPassSecond>;

inline constexpr Section kVoiceBandFirst{0.05683659f, -0.05683659f, 0.0f, 0.97040838f, -0.0f};
inline constexpr Section kVoiceBandSecond{8.0999937f, -16.1997f, 8.0999937f, 1.9872345f, -0.98752278f};
/// Of a recording whose level is measured, at the device's rate.
using VoiceBand = SectionPair<kVoiceBandFirst, kVoiceBandSecond>;

}  // namespace sonivo
