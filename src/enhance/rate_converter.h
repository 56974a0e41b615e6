#pragma once

#include <array>

#include "enhance/rate_kernel.h"
#include "enhance/rate_products.h"

namespace sonivo {

/// Streaming rate conversion, frame by frame of 10 ms. Output sample i is the product of row i of the kernel with the
/// input from start[i] on, where place 31 is the frame's first sample.
class RateConverter {
 public:
  static constexpr int kLatency = 16;  ///< input samples

  explicit RateConverter(const RateKernel& kernel, const RateProducts& products = best_rate_products())
      : kernel_(kernel), products_(products.process) {}

  std::size_t in_frame() const { return kernel_.in_frame; }
  std::size_t out_frame() const { return kernel_.out_frame; }

  /// As if silence had gone before.
  void reset() { history_ = {}; }
  /// in: in_frame() samples; out: out_frame() of them.
  void process(const float* in, float* out);

 private:
  const RateKernel& kernel_;
  const RateProducts::Process products_;
  /// The last 31 samples, the frame behind them, and what the 0 of a row falls on.
  alignas(64) std::array<float, RateKernel::kTaps + RateKernel::kMaxFrame + 1> history_{};
};

}  // namespace sonivo
