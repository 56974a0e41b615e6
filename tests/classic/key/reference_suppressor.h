#pragma once

// The gain of the key stage in double precision, band group by band group in the order of its steps.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "classic/param_blobs.h"

namespace sonivo::classic::reference {

using Vector = std::vector<double>;

inline double curve(double x, double thi1, double thi2, double tho1, double tho2) {
  const double s1 = tho1 / thi1, s2 = (tho2 - tho1) / (thi2 - thi1), s3 = (1 - tho2) / (1 - thi2);
  if (thi1 > x) return x * s1;
  if (thi2 > x) return (x - thi1) * s2 + tho1;
  return (x - thi2) * s3 + tho2;
}

struct Suppressor {
  explicit Suppressor(const PulsePath& path)
      : prm_tbl(path.nbin_pulse_param_tbl),
        ui_tbl(path.nbin_pulse_param_ui_tbl),
        p(path.pulse_sup),
        n(p.pulse_nbin),
        P(n),
        peakDiff(n),
        peakNpm(n),
        g(n),
        prod(p.npm_num),
        keep(n),
        keepNpm(p.npm_num) {}

  /// step(b, k) for the pulse bands k of each group b
  template <typename Step>
  static void each(const std::uint16_t* table, int groups, Step step) {
    for (int b = 0; b < groups; ++b) {
      for (std::size_t k = table[b]; k < table[b + 1]; ++k) step(b, k);
    }
  }
  template <typename Step>
  void prm(Step step) const {
    each(prm_tbl, p.prm_nbin, step);
  }
  template <typename Step>
  void ui(Step step) const {
    each(ui_tbl, p.ui_nbin, step);
  }

  static double in_coefficient(double pwc, double U) { return U > 0 ? std::max(0.0, 1 - (1 - pwc) / U) : 0; }

  void process(const Vector& X, const Vector& R) {
    if (p.bypass == 1) {
      g.assign(n, 1.0);
      return;
    }
    ui([&](int b, std::size_t k) {
      const double up = in_coefficient(p.pwc_g_up[b], p.pwc_g_up2pwc_in_up);
      const double dn = in_coefficient(p.pwc_g_dn[b], p.pwc_g_dn2pwc_in_dn);
      const double c = P[k] > X[k] ? dn : up;
      P[k] = c * P[k] + (1 - c) * X[k];
    });
    const double w_v = curve(avgG, p.avg_g_thi1, p.avg_g_thi2, p.avg_g_tho1, p.avg_g_tho2);
    const double w_n = 1 - w_v;
    prm([&](int b, std::size_t k) { peakDiff[k] *= p.pwc_np_dn[b]; });
    ui([&](int b, std::size_t k) { detect_band(b, k, R[k]); });
    for (std::size_t i = 0; i < p.npm_num; ++i) {
      prod[i] = 1;
      for (std::size_t j = 0; j < p.npm_band_num[i]; ++j) prod[i] *= R[p.npm_band[i][j]];
    }
    prm([&](int b, std::size_t k) { peakNpm[k] *= p.pwc_npm_dn[b]; });
    for (std::size_t i = 0; i < p.npm_num; ++i) detect_group(i);

    Vector T(n), C(n);
    for (std::size_t k = 0; k < n; ++k) T[k] = std::max(peakNpm[k], peakDiff[k]);
    prm([&](int b, std::size_t k) {
      const double c = w_n * p.sig_np_sub_coef_noise[b] + w_v * p.sig_np_sub_coef_voice[b];
      C[k] = std::max(0.0, P[k] - c * T[k]);
    });
    Vector M = spread(C);
    prm([&](int b, std::size_t k) { T[k] *= w_n * p.np_mgn_noise[b] + w_v * p.np_mgn_voice[b]; });
    for (std::size_t k = 0; k < n; ++k) M[k] += C[k];
    ui([&](int b, std::size_t k) { M[k] += p.g_floor[b] * T[k]; });
    for (std::size_t k = 0; k < n; ++k) T[k] += C[k];
    const double e = w_n * p.g_enf_coef_noise + w_v * p.g_enf_coef_voice;
    Vector r(n);
    for (std::size_t k = 0; k < n; ++k) r[k] = std::min(1.0, e * M[k] / (T[k] + 1e-5));
    guard(r);
    ui([&](int b, std::size_t k) {
      double c = p.pwc_g_up[b];
      if (g[k] > p.pwc_g_up_tail_th[b]) c = p.pwc_g_up_tail[b];
      if (g[k] > r[k]) c = p.pwc_g_dn[b];
      g[k] = c * g[k] + (1 - c) * r[k];
    });
    double sum = 0;
    for (const double gain : g) sum += std::abs(gain);
    avgG = sum / static_cast<double>(n);
  }

  void detect_band(int b, std::size_t k, double R) {
    const double minDiff = p.min_diff_p[b];
    const double maxDiff = minDiff * p.min_diff_p2max_diff_p;
    if (R > maxDiff) {
      keep[k] = p.det_keep_num[b];
    } else {
      keep[k] = std::max(keep[k] - 1, 0);
    }
    if (keep[k] > 0) {
      peakDiff[k] = std::max(peakDiff[k], P[k]);
    } else if (R >= minDiff) {
      peakDiff[k] = std::max(peakDiff[k], (R - minDiff) * P[k] / (maxDiff - minDiff));
    }
  }

  void detect_group(std::size_t i) {
    if (prod[i] > p.min_npm_det[i] * static_cast<double>(p.min_npm_det2max_npm_det)) {
      keepNpm[i] = p.det_keep_npm_num[i];
    } else {
      keepNpm[i] -= 1;
      if (keepNpm[i] < 0) {
        keepNpm[i] = 0;
        return;
      }
    }
    if (keepNpm[i] > 0) {
      for (std::size_t k = 0; k < n; ++k) peakNpm[k] = std::max(peakNpm[k], P[k]);
    }
  }

  Vector spread(const Vector& C) const {
    Vector M = C;
    double m = 0;
    prm([&](int b, std::size_t k) { M[k] = m = std::max(m * p.mask_pwc_up[b], M[k]); });
    m = 0;
    for (int b = p.prm_nbin - 1; b >= 0; --b) {
      for (std::size_t k = prm_tbl[b + 1]; k-- > prm_tbl[b];) M[k] = m = std::max(m * p.mask_pwc_dn[b], M[k]);
    }
    prm([&](int b, std::size_t k) { M[k] *= p.mask_coef[b]; });
    return M;
  }

  void guard(Vector& r) {
    int count = 0;
    for (const double gain : r) count += gain > p.sup_det_gn_th ? 1 : 0;
    if (count >= p.sup_det_fnum_th) {
      supCount = 0;
      return;
    }
    supCount += 1;
    if (supCount > p.sup_det_count_th) {
      ui([&](int b, std::size_t k) { r[k] = std::min(r[k], static_cast<double>(p.g_floor[b])); });
      supCount -= 1;
    }
  }

  const std::uint16_t* prm_tbl;
  const std::uint16_t* ui_tbl;
  const PulseSupBlock& p;
  std::size_t n;
  Vector P, peakDiff, peakNpm, g, prod;
  std::vector<int> keep, keepNpm;
  double avgG = 0;
  int supCount = 0;
};

}  // namespace sonivo::classic::reference
