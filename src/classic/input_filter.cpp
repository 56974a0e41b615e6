#include "classic/input_filter.h"

namespace sonivo::classic {

static_assert(kFilterStages <= BiquadLanes::kLanes);

InputFilter::InputFilter(const AinBlock& param, const Kernels& kernels)
    : param_(param), kernels_(kernels), coefficients_{} {
  for (std::size_t stage = 0; stage < param.stage_num; ++stage) {
    const BiquadCoefficients& section = param.coefficients[stage];
    coefficients_.b0[stage] = section.b0;
    coefficients_.b1[stage] = section.b1;
    coefficients_.b2[stage] = section.b2;
    coefficients_.minus_a1[stage] = section.minus_a1;
    coefficients_.minus_a2[stage] = section.minus_a2;
  }
  reset();
}

void InputFilter::reset() { state_ = {}; }

void InputFilter::process(std::span<float> signal) {
  if (param_.stage_num == 0) return;
  kernels_.biquads(coefficients_, param_.stage_num, state_, signal.data(), signal.size());
}

}  // namespace sonivo::classic
