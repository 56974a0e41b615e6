#include "classic/pulse_suppressor.h"

#include <algorithm>
#include <cmath>

#include "classic/curve.h"
#include "classic/spreading.h"

namespace sonivo::classic {

namespace {

/// Coefficient of the input level's smoothing from that of the gain's.
float input_coefficient(float pwc, float pwc2pwc_in) {
  return pwc2pwc_in > 0.0f ? std::max(0.0f, 1.0f - (1.0f - pwc) / pwc2pwc_in) : 0.0f;
}

/// A peak that is as good as gone becomes 0: left to decay it would stay at the smallest of all numbers, which is slow.
float decayed(float peak, float factor) {
  constexpr float kGone = 1e-20f;
  peak *= factor;
  return std::abs(peak) < kGone ? 0.0f : peak;
}

/// Values behind count, up to a multiple of four, must be 0.
float sum_of_magnitudes(const float* x, std::size_t count) {
  float sum[4] = {};
  for (std::size_t k = 0; k < count; k += 4) {
    for (std::size_t lane = 0; lane < 4; ++lane) sum[lane] += std::abs(x[k + lane]);
  }
  return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

}  // namespace

PulseSuppressor::PulseSuppressor(const PulsePath& param)
    : path_(param),
      param_(param.pulse_sup),
      bands_(param_.pulse_nbin),
      prm_{param.nbin_pulse_param_tbl[0], param.nbin_pulse_param_tbl[param_.prm_nbin]},
      ui_{param.nbin_pulse_param_ui_tbl[0], param.nbin_pulse_param_ui_tbl[param_.ui_nbin]},
      tuning_{} {
  for (std::size_t i = 0; i < kNpmGroups; ++i) maxNpm_[i] = param_.min_npm_det[i] * param_.min_npm_det2max_npm_det;
  tune_ui();
  tune_prm();
  reset();
}

void PulseSuppressor::tune_ui() {
  Tuning& t = tuning_;
  for (std::size_t b = 0; b < param_.ui_nbin; ++b) {
    for (std::size_t k = path_.nbin_pulse_param_ui_tbl[b]; k < path_.nbin_pulse_param_ui_tbl[b + 1]; ++k) {
      t.pwcInUp[k] = input_coefficient(param_.pwc_g_up[b], param_.pwc_g_up2pwc_in_up);
      t.pwcInDn[k] = input_coefficient(param_.pwc_g_dn[b], param_.pwc_g_dn2pwc_in_dn);
      t.minDiff[k] = param_.min_diff_p[b];
      t.maxDiff[k] = param_.min_diff_p[b] * param_.min_diff_p2max_diff_p;
      t.per_diff[k] = 1.0f / (t.maxDiff[k] - t.minDiff[k]);
      t.keep_num[k] = param_.det_keep_num[b];
      t.g_floor[k] = param_.g_floor[b];
      t.g_up[k] = param_.pwc_g_up[b];
      t.g_up_tail[k] = param_.pwc_g_up_tail[b];
      t.g_up_tail_th[k] = param_.pwc_g_up_tail_th[b];
      t.g_dn[k] = param_.pwc_g_dn[b];
    }
  }
}

void PulseSuppressor::tune_prm() {
  Tuning& t = tuning_;
  for (std::size_t b = 0; b < param_.prm_nbin; ++b) {
    for (std::size_t k = path_.nbin_pulse_param_tbl[b]; k < path_.nbin_pulse_param_tbl[b + 1]; ++k) {
      t.np_dn[k] = param_.pwc_np_dn[b];
      t.npm_dn[k] = param_.pwc_npm_dn[b];
      t.sub_noise[k] = param_.sig_np_sub_coef_noise[b];
      t.sub_voice[k] = param_.sig_np_sub_coef_voice[b];
      t.mgn_noise[k] = param_.np_mgn_noise[b];
      t.mgn_voice[k] = param_.np_mgn_voice[b];
    }
  }
}

void PulseSuppressor::reset() { state_ = {}; }

void PulseSuppressor::process(std::span<const float> X, std::span<const float> R) {
  if (param_.bypass == 1) {
    std::fill_n(state_.g, bands_, 1.0f);
    return;
  }
  smooth_input(X.data());
  const Weights w = weights();
  hold_band_peaks(R.data());
  multiply_groups(R.data());
  hold_group_peaks();
  float r[kMaxBands];
  raw_gain(w, r);
  guard(r);
  smooth_gain(r);
}

// The loops below read both sides of a choice before they choose: that lets them run on vectors.

void PulseSuppressor::smooth_input(const float* X) {
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) {
    const float P = state_.P[k], up = tuning_.pwcInUp[k], dn = tuning_.pwcInDn[k];
    const float c = P > X[k] ? dn : up;
    state_.P[k] = c * P + (1.0f - c) * X[k];
  }
}

PulseSuppressor::Weights PulseSuppressor::weights() const {
  const Curve avg_g{param_.avg_g_thi1, param_.avg_g_thi2, param_.avg_g_tho1, param_.avg_g_tho2, param_.avg_g_slope};
  const float voice = avg_g(state_.avgG);
  return {voice, 1.0f - voice};
}

/// A jump above maxDiff counts in full and is kept for a while; one from minDiff on counts in proportion.
void PulseSuppressor::hold_band_peaks(const float* R) {
  State& s = state_;
  const Tuning& t = tuning_;
  for (std::size_t k = prm_.begin; k < prm_.end; ++k) s.peakDiff[k] = decayed(s.peakDiff[k], t.np_dn[k]);
  float share[kMaxBands];
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) {
    const std::int32_t fresh = t.keep_num[k], kept = std::max(s.keep[k] - 1, 0);
    s.keep[k] = R[k] > t.maxDiff[k] ? fresh : kept;
    share[k] = (R[k] - t.minDiff[k]) * s.P[k] * t.per_diff[k];
  }
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) {
    const float P = s.P[k], partial = share[k], peak = s.peakDiff[k];
    const float small_jump = R[k] >= t.minDiff[k] ? partial : peak;
    const float jump = s.keep[k] > 0 ? P : small_jump;
    s.peakDiff[k] = peak < jump ? jump : peak;
  }
}

void PulseSuppressor::multiply_groups(const float* R) {
  for (std::size_t i = 0; i < param_.npm_num; ++i) {
    state_.prod[i] = 1.0f;
    for (std::size_t j = 0; j < param_.npm_band_num[i]; ++j) state_.prod[i] *= R[param_.npm_band[i][j]];
  }
}

/// A wide stroke raises the whole spectrum, whichever group it shows in.
void PulseSuppressor::hold_group_peaks() {
  State& s = state_;
  for (std::size_t k = prm_.begin; k < prm_.end; ++k) s.peakNpm[k] = decayed(s.peakNpm[k], tuning_.npm_dn[k]);
  bool wide = false;
  for (std::size_t i = 0; i < param_.npm_num; ++i) {
    s.keepNpm[i] = s.prod[i] > maxNpm_[i] ? param_.det_keep_npm_num[i] : std::max(s.keepNpm[i] - 1, 0);
    wide = wide || s.keepNpm[i] > 0;
  }
  if (!wide) return;
  for (std::size_t k = 0; k < bands_; ++k) s.peakNpm[k] = std::max(s.peakNpm[k], s.P[k]);
}

void PulseSuppressor::raw_gain(const Weights& w, float* r) const {
  const State& s = state_;
  const Tuning& t = tuning_;
  float T[kMaxBands];       // impulse level
  float C[kMaxBands] = {};  // clean level
  float M[kMaxBands];       // what the clean level masks
  for (std::size_t k = 0; k < bands_; ++k) T[k] = std::max(s.peakNpm[k], s.peakDiff[k]);
  for (std::size_t k = prm_.begin; k < prm_.end; ++k) {
    const float c = w.noise * t.sub_noise[k] + w.voice * t.sub_voice[k];
    C[k] = std::max(0.0f, s.P[k] - c * T[k]);
  }
  spread({{path_.nbin_pulse_param_tbl, param_.prm_nbin + 1u}, param_.mask_pwc_up, param_.mask_pwc_dn, param_.mask_coef},
         {C, bands_}, {M, bands_});
  for (std::size_t k = prm_.begin; k < prm_.end; ++k) T[k] *= w.noise * t.mgn_noise[k] + w.voice * t.mgn_voice[k];
  for (std::size_t k = 0; k < bands_; ++k) M[k] += C[k];
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) M[k] += t.g_floor[k] * T[k];
  const float e = w.noise * param_.g_enf_coef_noise + w.voice * param_.g_enf_coef_voice;
  for (std::size_t k = 0; k < bands_; ++k) r[k] = std::min(1.0f, e * M[k] / (T[k] + C[k] + 1e-5f));
}

/// Once too few bands have stayed open for too long, none opens beyond its floor.
void PulseSuppressor::guard(float* r) {
  const auto open = std::count_if(r, r + bands_, [&](float gain) { return gain > param_.sup_det_gn_th; });
  if (open >= param_.sup_det_fnum_th) {
    state_.supCount = 0;
    return;
  }
  if (++state_.supCount <= param_.sup_det_count_th) return;
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) r[k] = std::min(r[k], tuning_.g_floor[k]);
  --state_.supCount;
}

/// A recovery slows down in its tail, near unity.
void PulseSuppressor::smooth_gain(const float* r) {
  State& s = state_;
  const Tuning& t = tuning_;
  for (std::size_t k = ui_.begin; k < ui_.end; ++k) {
    const float g = s.g[k], up = t.g_up[k], tail = t.g_up_tail[k], dn = t.g_dn[k];
    const float rising = g > t.g_up_tail_th[k] ? tail : up;
    const float c = g > r[k] ? dn : rising;
    s.g[k] = c * g + (1.0f - c) * r[k];
  }
  s.avgG = sum_of_magnitudes(s.g, bands_) / static_cast<float>(bands_);
}

}  // namespace sonivo::classic
