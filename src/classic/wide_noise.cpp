#include "classic/wide_noise.h"

#include <algorithm>
#include <cmath>

namespace sonivo::classic {

WideNoise::WideNoise(const NsNrCommon& param, CoarseBounds bounds) : param_(param), bounds_(bounds) {
  for (std::size_t i = 0; i < kWideLevels; ++i) {
    steps_[i].g_floor_nw = by_fine_band(bounds, param.g_floor_nw[i]);
    steps_[i].nw_ns_sub_coef = by_fine_band(bounds, param.nw_ns_sub_coef[i]);
  }
  reset();
}

void WideNoise::reset() {
  detected_ = false;
  end_ = 0;
  step_ = 0;
  W_.fill(0.0f);
}

/// Mean level of as many bands as lie between nw_det_band_min and nw_det_band_max, from band 0 on: only the difference
/// of the two keys counts.
float WideNoise::loudness(std::span<const float> signal) const {
  const int count = param_.nw_det_band_max - param_.nw_det_band_min;
  float sum = 0.0f;
  for (int k = 0; k < count; ++k) sum += std::abs(signal[static_cast<std::size_t>(k)]);
  return sum / static_cast<float>(count);
}

void WideNoise::process(const BeamLevels& target, const FineBands& signal_sub) {
  const float level = loudness(target.signal);
  detected_ = !(level < param_.nw_det_th[0]);
  std::size_t found = kWideLevels;
  while (found > 0 && !(level > param_.nw_det_th[found - 1])) --found;

  if (!detected_ || found == 0) {
    if (end_ > 0) W_.fill(0.0f);
    end_ = 0;
    return;
  }
  step_ = found - 1;
  end_ = bounds_[param_.nw_end_nbin_param[step_]];
  follow(target.signal);
  const FineBands& nw_ns_sub_coef = steps_[step_].nw_ns_sub_coef;
  for (std::size_t k = bounds_[0]; k < end_; ++k) {
    W_[k] = std::max(0.0f, W_[k] - signal_sub[k] * nw_ns_sub_coef[k] * target.noise[k]);
  }
  std::fill(W_.begin() + static_cast<std::ptrdiff_t>(end_), W_.end(), 0.0f);
}

/// W = the signal below band nw_start_nbin and in it, from there on an envelope that starts at the maximum below it and
/// only falls.
void WideNoise::follow(std::span<const float> signal) {
  const std::size_t start = param_.nw_start_nbin[step_];
  const float f = param_.freq_dh_pwc[step_];
  float m = 0.0f;
  for (std::size_t k = 0; k < start; ++k) {
    W_[k] = signal[k];
    m = std::max(m, signal[k]);
  }
  W_[start] = signal[start];
  for (std::size_t k = start + 1; k < end_; ++k) {
    if (m > signal[k]) m = f * m + (1.0f - f) * signal[k];
    W_[k] = m;
  }
}

void WideNoise::scale(float margin) {
  for (std::size_t k = bounds_[0]; k < end_; ++k) W_[k] *= margin;
}

}  // namespace sonivo::classic
