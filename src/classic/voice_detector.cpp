#include "classic/voice_detector.h"

#include <algorithm>

namespace sonivo::classic {

VoiceDetector::VoiceDetector(const VdsBlock& param, std::span<const std::uint16_t> nbin_param_tbl)
    : param_(param), nbin_param_tbl_(nbin_param_tbl) {
  reset();
}

void VoiceDetector::reset() {
  active_ = false;
  counter_ = 0;
}

bool VoiceDetector::exceeds_noise(std::span<const float> S, std::span<const float> L) const {
  const float E = param_.Nef_floor[kCoarseBands];
  float excess = 0.0f;
  float ref = 0.0f;
  for (std::size_t b = 0; b < param_.nbin; ++b) {
    const float f = std::max(L[b] * E, param_.Nef_floor[b]);
    const float w = param_.vd_w[b];
    for (std::size_t k = nbin_param_tbl_[b]; k < nbin_param_tbl_[b + 1]; ++k) {
      const float d = S[k] - f;
      if (d > 0.0f) excess += d * w;
      ref += f * w;
    }
  }
  ref *= param_.th_coef;
  return excess > ref;
}

void VoiceDetector::process(std::span<const float> S, std::span<const float> L) {
  const bool voiced = exceeds_noise(S, L);
  counter_ = static_cast<std::int16_t>(counter_ + (voiced ? 1 : -1));
  if (!active_) {
    if (counter_ >= param_.upc_fb) {
      counter_ = static_cast<std::int16_t>(param_.upc_fb);
      active_ = true;
    } else if (counter_ < 0) {
      counter_ = 0;
    }
  } else if (voiced) {
    counter_ = static_cast<std::int16_t>(param_.dnc_fb);
  } else if (counter_ < 0) {
    active_ = false;
    counter_ = 0;
  }
}

}  // namespace sonivo::classic
