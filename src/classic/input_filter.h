#pragma once

#include <span>

#include "classic/kernels.h"
#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Up to six second-order sections in series, transposed direct form II, in place. For input x of a section
///
///   y = b0 * x + s0
///   s0 = minus_a1 * y + b1 * x + s1
///   s1 = minus_a2 * y + b2 * x
///
/// with s0, s1 = 0 after a reset.
class InputFilter {
 public:
  explicit InputFilter(const AinBlock& param, const Kernels& kernels = best_kernels());  // param outlives this object

  void reset();
  void process(std::span<float> signal);

 private:
  const AinBlock& param_;
  const Kernels& kernels_;
  BiquadLanes coefficients_;
  BiquadState state_;
};

}  // namespace sonivo::classic
