#include "classic/noise_reducer.h"

#include <algorithm>
#include <cassert>

#include "classic/four_floats.h"

namespace sonivo::classic {
namespace {

constexpr float kNoZeroDivision = 1e-5f;

float at_most_one(float x) { return std::min(1.0f, x); }

/// The curve for all bands; it must be written as vectors, choices between results don't become any by themselves.
void shape(const Curve& curve, FineBands& gain) {
  const auto& [thi1, thi2, tho1, tho2, slope] = curve;
  for (std::size_t k = 0; k < kMaxBands; k += 4) {
    const FourFloats x = load_four(&gain[k]);
    const FourFloats low = x * slope[0];
    const FourFloats middle = (x - thi1) * slope[1] + tho1;
    const FourFloats high = (x - thi2) * slope[2] + tho2;
    store_four(&gain[k], thi1 > x ? low : thi2 > x ? middle : high);
  }
}

}  // namespace

NoiseReducer::NoiseReducer(const NsNrBlock& param, CoarseBounds bounds)
    : NoiseReducer(param.common, param.bypass == 1, bounds) {
  average(0, param.fine_nbin);
}

NoiseReducer::NoiseReducer(const NsNrBfBlock& param, CoarseBounds bounds)
    : NoiseReducer(param.common, param.bypass == 1, bounds) {
  average(param.nbin_avg_g_L, param.nbin_avg_g_H);
  reference_.emplace(param, bounds);
}

NoiseReducer::NoiseReducer(const NsNrCommon& param, bool bypass, CoarseBounds bounds)
    : param_(param),
      bypass_(bypass),
      first_band_(bounds.front()),
      end_band_(bounds.back()),
      sig_ns_sub_coef_{by_fine_band(bounds, param.sig_ns_sub_coef_voice),
                       by_fine_band(bounds, param.sig_ns_sub_coef_noise)},
      pwc_g_up_{by_fine_band(bounds, param.pwc_g_up_voice), by_fine_band(bounds, param.pwc_g_up_noise)},
      pwc_g_dn_{by_fine_band(bounds, param.pwc_g_dn_voice), by_fine_band(bounds, param.pwc_g_dn_noise)},
      g_floor_ns_(by_fine_band(bounds, param.g_floor_ns)),
      avg_g_{param.avg_g_thi1, param.avg_g_thi2, param.avg_g_tho1, param.avg_g_tho2, param.avg_g_slope},
      gn_nl_{param.gn_nl_thi1, param.gn_nl_thi2, param.gn_nl_tho1, param.gn_nl_tho2, param.gn_nl_slope},
      spreading_{bounds, param.mask_pwc_up, param.mask_pwc_dn, param.mask_coef},
      wide_(param, bounds),
      gate_(param, bounds),
      guard_(param, bounds) {
  reset();
}

void NoiseReducer::average(std::size_t first, std::size_t end) {
  std::fill(averaged_.begin() + static_cast<std::ptrdiff_t>(first),
            averaged_.begin() + static_cast<std::ptrdiff_t>(end), 1.0f / static_cast<float>(end - first));
}

void NoiseReducer::reset() {
  G_.fill(0.0f);
  avgGain_ = 0.0f;
  wide_.reset();
  gate_.reset();
  guard_.reset();
}

void NoiseReducer::process(const BeamLevels& target) { process(target, nullptr); }

void NoiseReducer::process(const BeamLevels& target, const BeamLevels& reference) { process(target, &reference); }

void NoiseReducer::process(const BeamLevels& target, const BeamLevels* reference) {
  if (bypass_) {
    G_.fill(1.0f);
    return;
  }
  const auto& [Sg, Nl] = target;
  const VoiceMix mix(avg_g_(avgGain_));

  FineBands signal_sub;
  for (std::size_t k = 0; k < kMaxBands; ++k) signal_sub[k] = mix(sig_ns_sub_coef_, k);
  wide_.process(target, signal_sub);

  FineBands C;  // clean estimate
  const FineBands& W = wide_.component();
  for (std::size_t k = 0; k < kMaxBands; ++k) {
    C[k] = std::max(0.0f, std::max(0.0f, Sg[k] - signal_sub[k] * Nl[k]) - W[k]);
  }
  FineBands X{};  // noise from elsewhere
  assert((reference != nullptr) == reference_.has_value());
  if (reference != nullptr) reference_->purify(*reference, mix, C, X);

  FineBands M;  // what the clean estimate masks, then all that may pass
  spread(spreading_, C, M);

  FineBands D;  // steady noise
  const float ns_mgn = mix(param_.ns_mgn_voice, param_.ns_mgn_noise);
  for (std::size_t k = 0; k < kMaxBands; ++k) D[k] = ns_mgn * Nl[k];
  wide_.scale(mix(param_.nw_mgn_voice, param_.nw_mgn_noise));
  for (std::size_t k = 0; k < wide_.end(); ++k) D[k] = std::max(0.0f, D[k] - W[k]);

  FineBands r;
  const float g_enf_coef = mix(param_.g_enf_coef_voice, param_.g_enf_coef_noise);
  const FineBands& g_floor_nw = wide_.floor();
  const FineBands& g_floor_nn = reference_ ? reference_->floor() : X;
  for (std::size_t k = 0; k < kMaxBands; ++k) {
    const float passing = M[k] + C[k] + g_floor_ns_[k] * D[k] + g_floor_nn[k] * X[k] + g_floor_nw[k] * W[k];
    const float all = X[k] + D[k] + C[k] + W[k];
    r[k] = at_most_one(g_enf_coef * passing / (all + kNoZeroDivision));
  }

  gate_.process(r);
  if (guard_.process(r)) suppress(target, D, r);
  shape(gn_nl_, r);
  smooth(mix, r);
}

/// Gain that leaves only the floor of the steady noise.
void NoiseReducer::suppress(const BeamLevels& target, const FineBands& D, FineBands& r) const {
  for (std::size_t k = 0; k < kMaxBands; ++k) {
    const float floor = g_floor_ns_[k], signal = target.signal[k], noise = D[k] * sig_ns_sub_coef_.noise[k];
    r[k] = at_most_one(floor * noise / (std::max(signal, noise) + kNoZeroDivision));
  }
}

void NoiseReducer::smooth(const VoiceMix& mix, const FineBands& r) {
  FineBands up, dn;
  for (std::size_t k = 0; k < kMaxBands; ++k) {
    up[k] = mix(pwc_g_up_, k);
    dn[k] = mix(pwc_g_dn_, k);
  }
  for (std::size_t k = 0; k < kMaxBands; k += 4) {
    const FourFloats G = load_four(&G_[k]), target = load_four(&r[k]);
    const FourFloats c = G > target ? load_four(&dn[k]) : load_four(&up[k]);
    store_four(&G_[k], c * G + (1.0f - c) * target);
  }
  std::fill_n(G_.begin(), first_band_, 0.0f);
  std::fill(G_.begin() + static_cast<std::ptrdiff_t>(end_band_), G_.end(), 0.0f);

  FourFloats mean{};
  for (std::size_t k = 0; k < kMaxBands; k += 4) mean += magnitude(load_four(&G_[k])) * load_four(&averaged_[k]);
  avgGain_ = sum(mean);
}

}  // namespace sonivo::classic
