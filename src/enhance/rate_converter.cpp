#include "enhance/rate_converter.h"

#include <algorithm>

namespace sonivo {

void RateConverter::process(const float* in, float* out) {
  std::copy_n(history_.begin() + static_cast<std::ptrdiff_t>(in_frame()), RateKernel::kTaps, history_.begin());
  std::copy_n(in, in_frame(), history_.begin() + RateKernel::kTaps);
  products_(kernel_, history_.data(), out);
}

}  // namespace sonivo
