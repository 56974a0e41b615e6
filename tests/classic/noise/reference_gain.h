#pragma once

#include <algorithm>
#include <cmath>
#include <functional>

#include "reference_transform.h"

namespace sonivo::classic::reference {

inline double curve(double x, double thi1, double thi2, double tho1, double tho2, const float* s) {
  if (thi1 > x) return x * s[0];
  if (thi2 > x) return (x - thi1) * s[1] + tho1;
  return (x - thi2) * s[2] + tho2;
}

/// Gain machine of the noise stage. Loops go over coarse bands p and their fine bands k, as the formulas do.
class NoiseReducer {
 public:
  NoiseReducer(const NsNrCommon& common, std::size_t fine, std::size_t coarse, const std::uint16_t* bounds)
      : G(fine), r(fine), param(common), nF(fine), nC(coarse), t(bounds), W(fine), C(fine), M(fine), D(fine) {}

  void one_channel(const Signal& Sg, const Signal& Nl) {
    weigh();
    find_wide_noise(Sg, Nl);
    fine([&](auto p, auto k) { C[k] = std::max(0.0, Sg[k] - signal_sub(p) * Nl[k]); });
    if (i >= 0) {
      for (std::size_t k = 0; k < E; ++k) C[k] = std::max(0.0, C[k] - W[k]);
    }
    spread();
    weigh_noise(Nl);
    Signal T(nF);
    fine([&](auto p, auto k) {
      M[k] += C[k];
      M[k] += param.g_floor_ns[p] * D[k];
      T[k] = D[k] + C[k];
    });
    add_wide_noise(T);
    finish(Sg, T);
    avgGain = mean(0, nF);
  }

  void two_beams(const NsNrBfBlock& bf, const Signal Sg[2], const Signal Nl[2]) {
    weigh();
    Signal Xn(nF), Xs(nF);
    for (std::size_t k = 0; k < nF; ++k) {
      Xn[k] = bf.noise_mix_w[1] * Nl[1][k];
      Xs[k] = bf.noise_mix_w[1] * Sg[1][k];
    }
    find_wide_noise(Sg[0], Nl[0]);
    fine([&](auto p, auto k) {
      const double c1 = w_n * bf.noi_ns_sub_coef_noise[p] + w_v * bf.noi_ns_sub_coef_voice[p];
      Xs[k] -= c1 * Xn[k];
      C[k] = std::max(0.0, Sg[0][k] - signal_sub(p) * Nl[0][k]);
    });
    if (i >= 0) {
      for (std::size_t k = 0; k < E; ++k) C[k] = std::max(0.0, C[k] - W[k]);
    }
    fine([&](auto p, auto k) {
      const double c3 = w_n * bf.noi_nn_sub_coef_noise[p] + w_v * bf.noi_nn_sub_coef_voice[p];
      const double c4 = w_n * bf.sig_nn_sub_coef_noise[p] + w_v * bf.sig_nn_sub_coef_voice[p];
      Xs[k] = std::max(0.0, Xs[k] - c3 * C[k]);
      C[k] = std::max(0.0, C[k] - c4 * Xs[k]);
    });
    spread();
    weigh_noise(Nl[0]);
    Signal T(nF);
    fine([&](auto p, auto k) {
      Xs[k] *= w_v * bf.nn_mgn_voice + w_n * bf.nn_mgn_noise;
      M[k] += C[k];
      M[k] += param.g_floor_ns[p] * D[k] + bf.g_floor_nn[p] * Xs[k];
      T[k] = Xs[k] + D[k] + C[k];
    });
    add_wide_noise(T);
    finish(Sg[0], T);
    avgGain = mean(bf.nbin_avg_g_L, bf.nbin_avg_g_H);
  }

  Signal G, r;
  double avgGain = 0.0;
  int i = -1;            ///< step of the wide noise
  bool gate = false;     ///< voiceGate
  bool guarded = false;  ///< the latest frame was replaced

 private:
  void fine(const std::function<void(std::size_t p, std::size_t k)>& visit) {
    for (std::size_t p = 0; p < nC; ++p) {
      for (std::size_t k = t[p]; k < t[p + 1]; ++k) visit(p, k);
    }
  }

  void weigh() {
    w_v = curve(avgGain, param.avg_g_thi1, param.avg_g_thi2, param.avg_g_tho1, param.avg_g_tho2, param.avg_g_slope);
    w_n = 1.0 - w_v;
  }

  double signal_sub(std::size_t p) const {
    return w_n * param.sig_ns_sub_coef_noise[p] + w_v * param.sig_ns_sub_coef_voice[p];
  }

  void find_wide_noise(const Signal& Sg, const Signal& Nl) {
    const std::size_t count = std::size_t(param.nw_det_band_max - param.nw_det_band_min);
    double level = 0.0;
    for (std::size_t k = 0; k < count; ++k) level += std::abs(Sg[k]) / double(count);
    i = -1;
    if (level < param.nw_det_th[0]) return;
    for (int step = 0; step < 3; ++step) {
      if (level > param.nw_det_th[step]) i = step;
    }
    if (i < 0) return;
    const std::size_t s = param.nw_start_nbin[i];
    E = t[param.nw_end_nbin_param[i]];
    double m = 0.0;
    for (std::size_t k = 0; k < s; ++k) {
      W[k] = Sg[k];
      m = std::max(m, Sg[k]);
    }
    W[s] = Sg[s];
    for (std::size_t k = s + 1; k < E; ++k) {
      const double f = param.freq_dh_pwc[i];
      if (m > Sg[k]) m = f * m + (1.0 - f) * Sg[k];
      W[k] = m;
    }
    wide([&](auto p, auto k) { W[k] = std::max(0.0, W[k] - signal_sub(p) * param.nw_ns_sub_coef[i][p] * Nl[k]); });
  }

  /// Visits the fine bands below the end of the wide noise, if there is one.
  void wide(const std::function<void(std::size_t p, std::size_t k)>& visit) {
    if (i < 0) return;
    for (std::size_t p = 0; p < param.nw_end_nbin_param[i]; ++p) {
      for (std::size_t k = t[p]; k < t[p + 1]; ++k) visit(p, k);
    }
  }

  void spread() {
    M = C;
    double m = 0.0;
    for (std::size_t p = 0; p < nC; ++p) {
      for (std::size_t k = t[p]; k < t[p + 1]; ++k) M[k] = m = std::max(m * param.mask_pwc_up[p], M[k]);
    }
    m = 0.0;
    for (std::size_t p = nC; p-- > 0;) {
      for (std::size_t k = t[p + 1]; k-- > t[p];) M[k] = m = std::max(m * param.mask_pwc_dn[p], M[k]);
    }
    fine([&](auto p, auto k) { M[k] *= param.mask_coef[p]; });
  }

  void weigh_noise(const Signal& Nl) {
    const double c = w_v * param.ns_mgn_voice + w_n * param.ns_mgn_noise;
    for (std::size_t k = 0; k < nF; ++k) D[k] = c * Nl[k];
    wide([&](auto, auto k) {
      W[k] *= w_v * param.nw_mgn_voice + w_n * param.nw_mgn_noise;
      D[k] = std::max(0.0, D[k] - W[k]);
    });
  }

  void add_wide_noise(Signal& T) {
    wide([&](auto p, auto k) {
      M[k] += param.g_floor_nw[i][p] * W[k];
      T[k] += W[k];
    });
  }

  double weight(const float* weights, double threshold) {
    double sum = 0.0;
    fine([&](auto p, auto k) {
      if (r[k] > threshold) sum += weights[p];
    });
    return sum;
  }

  void finish(const Signal& Sg, Signal& T) {
    const double e_c = w_n * param.g_enf_coef_noise + w_v * param.g_enf_coef_voice;
    for (std::size_t k = 0; k < nF; ++k) r[k] = std::min(1.0, e_c * M[k] / (T[k] + 1e-5));

    const bool against = gate ? param.vad_det_weight_th_off > weight(param.vad_det_weight_off, param.vad_det_gn_th_off)
                              : weight(param.vad_det_weight_on, param.vad_det_gn_th_on) > param.vad_det_weight_th_on;
    if (against) {
      gateCount += 1;
      if (gateCount >= (gate ? param.vad_det_count_th_off : param.vad_det_count_th_on)) {
        gate = !gate;
        gateCount = 0;
      }
    } else {
      gateCount -= 1;
      if (gateCount < 1) gateCount = 0;
    }

    guarded = false;
    if (param.sup_det_weight_th > weight(param.sup_det_weight, param.sup_det_gn_th)) {
      supCount += 1;
      if (supCount > param.sup_det_count_th) {
        guarded = true;
        fine([&](auto p, auto k) {
          D[k] *= param.sig_ns_sub_coef_noise[p];
          M[k] = param.g_floor_ns[p] * D[k];
          T[k] = std::max(Sg[k], D[k]);
          r[k] = std::min(1.0, M[k] / (T[k] + 1e-5));
        });
        supCount -= 1;
      }
    } else {
      supCount = 0;
    }

    for (double& x : r) {
      x = curve(x, param.gn_nl_thi1, param.gn_nl_thi2, param.gn_nl_tho1, param.gn_nl_tho2, param.gn_nl_slope);
    }
    fine([&](auto p, auto k) {
      const double up = w_v * param.pwc_g_up_voice[p] + (1.0 - w_v) * param.pwc_g_up_noise[p];
      const double dn = (1.0 - w_v) * param.pwc_g_dn_noise[p] + w_v * param.pwc_g_dn_voice[p];
      const double c = G[k] > r[k] ? dn : up;
      G[k] = c * G[k] + (1.0 - c) * r[k];
    });
  }

  double mean(std::size_t from, std::size_t to) const {
    double sum = 0.0;
    for (std::size_t k = from; k < to; ++k) sum += std::abs(G[k]);
    return sum / double(to - from);
  }

  const NsNrCommon& param;
  const std::size_t nF, nC;
  const std::uint16_t* const t;
  double w_v = 0.0, w_n = 0.0;
  std::size_t E = 0;
  Signal W, C, M, D;
  int gateCount = 0, supCount = 0;
};

}  // namespace sonivo::classic::reference
