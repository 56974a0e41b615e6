#include "classic/harmonic_noise_tracker.h"

#include <algorithm>

namespace sonivo::classic {

namespace {

/// From base_freq upward an envelope e follows the spectrum x: into a valley at the pace of freq_dh_pwc, out of it by
/// freq_dh_dn_coef per band at most. Peaks that stand out of it by freq_dh_up_coef or more are cut to the envelope.
void pull_to_valleys(const Nl2Block& param, const float* x, float* tmp) {
  const int b = param.base_freq;
  const float P = param.freq_dh_pwc;
  std::copy_n(x, b + 1, tmp);
  float e = x[b];
  for (int k = b + 1; k < param.nbin; ++k) {
    if (e > x[k]) {
      e = x[k] * (1.0f - P) + P * e;
      tmp[k] = e;
    } else if (e * param.freq_dh_up_coef > x[k]) {
      tmp[k] = x[k];
    } else {
      e *= param.freq_dh_dn_coef;
      tmp[k] = e;
    }
  }
}

}  // namespace

HarmonicNoiseTracker::HarmonicNoiseTracker(const Nl2Block& param, const bool* restart)
    : param_(param), windows_(param, restart) {}

void HarmonicNoiseTracker::reset() { windows_.reset(); }

void HarmonicNoiseTracker::process(std::span<const float> input, bool voice, std::span<float> level) {
  if (windows_.wait()) return;
  const bool restoring = windows_.restoring();
  float tmp[kMaxBands];
  if (!restoring) {
    pull_to_valleys(param_, input.data(), tmp);
    windows_.take(tmp);
  }
  windows_.lowest(tmp);
  for (int k = 0; k < param_.nbin; ++k)
    level[static_cast<std::size_t>(k)] = std::max(level[static_cast<std::size_t>(k)], tmp[k]);
  if (!restoring) windows_.count(voice);
}

}  // namespace sonivo::classic
