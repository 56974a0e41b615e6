#pragma once

#include <array>
#include <span>

namespace sonivo {

/// High-pass filter of the model's input at 16 kHz: two second-order sections in series, each in transposed direct
/// form, with state s0, s1:
///   y = b0 x + s0
///   s0 = a1 y + b1 x + s1
///   s1 = a2 y + b2 x
class HighPass {
 public:
  void reset() { dc_state_ = {}; }
  /// In place. Between calls, state that is no number or can't be heard any more becomes 0.
  void process(std::span<float> signal);

 private:
  std::array<float, 4> dc_state_{};  // s0, s1 of the first section, then of the second
};

}  // namespace sonivo
