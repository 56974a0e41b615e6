#include "classic/reference_beam.h"

#include <algorithm>

namespace sonivo::classic {

ReferenceBeam::ReferenceBeam(const NsNrBfBlock& param, CoarseBounds bounds)
    : param_(param),
      noi_ns_sub_coef_{by_fine_band(bounds, param.noi_ns_sub_coef_voice),
                       by_fine_band(bounds, param.noi_ns_sub_coef_noise)},
      noi_nn_sub_coef_{by_fine_band(bounds, param.noi_nn_sub_coef_voice),
                       by_fine_band(bounds, param.noi_nn_sub_coef_noise)},
      sig_nn_sub_coef_{by_fine_band(bounds, param.sig_nn_sub_coef_voice),
                       by_fine_band(bounds, param.sig_nn_sub_coef_noise)},
      g_floor_nn_(by_fine_band(bounds, param.g_floor_nn)) {}

void ReferenceBeam::purify(const BeamLevels& reference, const VoiceMix& mix, FineBands& C, FineBands& X) const {
  const float w = param_.noise_mix_w[1];
  const float margin = mix(param_.nn_mgn_voice, param_.nn_mgn_noise);
  for (std::size_t k = 0; k < C.size(); ++k) {
    float x = w * reference.signal[k] - mix(noi_ns_sub_coef_, k) * (w * reference.noise[k]);
    x = std::max(0.0f, x - mix(noi_nn_sub_coef_, k) * C[k]);
    C[k] = std::max(0.0f, C[k] - mix(sig_nn_sub_coef_, k) * x);
    X[k] = margin * x;
  }
}

}  // namespace sonivo::classic
