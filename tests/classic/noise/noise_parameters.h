#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

#include "classic/param_blobs.h"

/// Parameter records of the noise stage.
namespace sonivo::classic::parameters {

inline void set_bands(BandTable& table, const std::vector<int>& edges) {
  table.nbin = std::uint16_t(edges.size() - 1);
  for (std::size_t b = 0; b < edges.size(); ++b) table.f[b] = std::uint16_t(edges[b]);
  for (std::size_t b = 0; b + 1 < edges.size(); ++b) table.inv_width[b] = 1.0f / float(edges[b + 1] - edges[b]);
}

inline double half_cosine(double x) { return 0.5 - 0.5 * std::cos(std::numbers::pi * x); }

inline void set_windows(AnaBlock& ana, SynBlock& syn) {
  const int N = kFft, H = kHop;
  ana.hop = H;
  ana.fft = N;
  ana.fnum_base_out = 0;
  ana.fnum_out = N / 2;
  for (int i = 0; i < N; ++i) {
    const double x = i < N - H ? double(i) / (N - H) : double(i - (N - H) + H) / H;
    ana.window[i] = float(0.5 / std::sqrt(N) * std::sqrt(half_cosine(x)));
  }
  syn.hop = H;
  syn.fft = N;
  for (int j = 1; j < 2 * H; ++j) {
    const double hann = half_cosine(double(j) / H);
    const double rise = std::sqrt(half_cosine(double(N - 2 * H + j) / (N - H)));
    syn.window[j] = float((j < H ? hann / rise : std::sqrt(hann)) / std::sqrt(N));
  }
}

inline void set_slopes(float thi1, float thi2, float tho1, float tho2, float* slope) {
  slope[0] = tho1 / thi1;
  slope[1] = (tho2 - tho1) / (thi2 - thi1);
  slope[2] = (1.0f - tho2) / (1.0f - thi2);
}

/// Recomputes what depends on the knots of the two curves.
inline void set_slopes(NsNrCommon& p) {
  set_slopes(p.avg_g_thi1, p.avg_g_thi2, p.avg_g_tho1, p.avg_g_tho2, p.avg_g_slope);
  set_slopes(p.gn_nl_thi1, p.gn_nl_thi2, p.gn_nl_tho1, p.gn_nl_tho2, p.gn_nl_slope);
}

/// Values that fall or rise from the first coarse band to the last.
inline void ramp(float* values, float first, float last) {
  for (int p = 0; p < kCoarseBands; ++p) values[p] = first + (last - first) * float(p) / float(kCoarseBands - 1);
}

/// Band tables: fine and coarse bands over bins, fine bands of the coarse bands.
struct Bands {
  std::vector<int> fine, coarse, bounds;
};

/// 55 fine bands in 12 coarse ones, over all bins.
inline Bands full_bands() {
  const std::vector<int> coarse = {0, 4, 8, 12, 16, 24, 32, 47, 62, 96, 131, 256, 512};
  const std::vector<int> bounds = {0, 4, 8, 12, 16, 20, 24, 29, 33, 40, 45, 52, 55};
  std::vector<int> fine;
  for (std::size_t p = 0; p + 1 < coarse.size(); ++p) {
    const int count = bounds[p + 1] - bounds[p];
    for (int k = 0; k < count; ++k) fine.push_back(coarse[p] + (coarse[p + 1] - coarse[p]) * k / count);
  }
  fine.push_back(512);
  return {fine, coarse, bounds};
}

/// 60 fine bands that leave out bins at both ends; six coarse bands with other edges, which leave out fine bands at
/// both ends.
inline Bands inner_bands() {
  std::vector<int> fine;
  for (int b = 0; b <= 60; ++b) fine.push_back(3 + b + b * b * 437 / 3600);
  return {fine, {1, 7, 19, 45, 100, 220, 505}, {1, 9, 20, 30, 30, 45, 58}};
}

/// 20 fine bands, fewer than the coarse levels have places.
inline Bands few_bands() {
  std::vector<int> fine;
  for (int b = 0; b <= 20; ++b) fine.push_back(b < 4 ? 2 * b : 6 + (b - 3) * (b - 3) + (b - 3) * 12);
  fine.back() = 512;
  return {fine, {0, 6, 40, 130, 300, 512}, {0, 3, 7, 12, 16, 20}};
}

inline void set_bands(CommonHead& head, NoisePath& path, const Bands& bands) {
  set_bands(head.syk1, bands.coarse);
  set_bands(head.syk2, bands.fine);
  for (std::size_t p = 0; p < bands.bounds.size(); ++p) head.nbin_param_tbl[p] = std::uint16_t(bands.bounds[p]);
  path.pwr_snd.nbin = path.nl_snd.nbin = path.vds.nbin = head.syk1.nbin;
  path.pwr_snd_vd.nbin = path.pwr_bf.nbin = path.pwr_bf_nl.nbin = path.nl_bf.nbin = path.nl2_bf.nbin = head.syk2.nbin;
}

/// Levels that settle within a few frames, noise windows of 15 frames, or 50 in speech.
inline void set_levels(NoisePath& path) {
  set_windows(path.ana, path.syn);
  path.pwr_snd.Pin_init = 50.0f;
  path.pwr_snd.PWCup = 0.4f;
  path.pwr_snd.PWCdn = 0.8f;
  path.pwr_snd_vd.Pin_init = 30.0f;
  path.pwr_snd_vd.PWCup = 0.3f;
  path.pwr_snd_vd.PWCdn = 0.6f;
  path.nl_snd.init_wait = 4;
  path.nl_snd.update_cycle_noise = 20;
  path.nl_snd.update_cycle_voice = 50;
  path.nl_snd.Nin_init = 1e5f;
  for (float& floor : path.vds.Nef_floor) floor = 60.0f;
  path.vds.Nef_floor[kCoarseBands] = 1.5f;
  ramp(path.vds.vd_w, 1.0f, 0.3f);
  path.vds.th_coef = 0.8f;
  path.vds.upc_fb = 3;
  path.vds.dnc_fb = 8;
  path.pwr_bf.Pin_init = 100.0f;
  path.pwr_bf.PWCup = 0.2f;
  path.pwr_bf.PWCdn = 0.55f;
  path.pwr_bf_nl.Pin_init = 120.0f;
  path.pwr_bf_nl.PWCup = 0.7f;
  path.pwr_bf_nl.PWCdn = 0.8f;
  path.nl_bf.init_wait = 3;
  path.nl_bf.update_cycle_noise = 15;
  path.nl_bf.update_cycle_voice = 50;
  path.nl_bf.Nin_init = 2e4f;
  path.nl2_bf.init_wait = 5;
  path.nl2_bf.update_cycle_noise = 12;
  path.nl2_bf.update_cycle_voice = 40;
  path.nl2_bf.base_freq = 3;
  path.nl2_bf.Nin_init = 2e4f;
  path.nl2_bf.freq_dh_pwc = 0.3f;
  path.nl2_bf.freq_dh_up_coef = 1.2f;
  path.nl2_bf.freq_dh_dn_coef = 1.1f;
  for (int k = 0; k < kMaxBands; ++k) path.ns_nr_eq[k] = 1.0f + 0.3f * std::sin(0.4f * float(k));
}

inline void set_gain(NsNrCommon& p) {
  p.nw_det_band_min = 2;
  p.nw_det_band_max = 9;
  const float thresholds[] = {150.0f, 600.0f, 1500.0f}, decays[] = {0.6f, 0.75f, 0.85f};
  const int starts[] = {2, 0, 5}, ends[] = {2, 3, 4};
  for (int i = 0; i < kWideLevels; ++i) {
    p.nw_start_nbin[i] = std::uint16_t(starts[i]);
    p.nw_end_nbin_param[i] = std::uint16_t(ends[i]);
    p.nw_det_th[i] = thresholds[i];
    p.freq_dh_pwc[i] = decays[i];
    ramp(p.g_floor_nw[i], 0.05f + 0.02f * float(i), 0.2f);
    ramp(p.nw_ns_sub_coef[i], 0.9f, 0.4f + 0.1f * float(i));
  }
  ramp(p.g_floor_ns, 0.08f, 0.2f);
  ramp(p.pwc_g_up_voice, 0.1f, 0.3f);
  ramp(p.pwc_g_up_noise, 0.5f, 0.6f);
  ramp(p.pwc_g_dn_voice, 0.8f, 0.6f);
  ramp(p.pwc_g_dn_noise, 0.4f, 0.7f);
  ramp(p.sig_ns_sub_coef_voice, 0.9f, 1.1f);
  ramp(p.sig_ns_sub_coef_noise, 1.6f, 1.3f);
  p.ns_mgn_voice = 1.1f;
  p.ns_mgn_noise = 1.7f;
  p.nw_mgn_voice = 0.8f;
  p.nw_mgn_noise = 1.2f;
  ramp(p.mask_pwc_up, 0.3f, 0.6f);
  ramp(p.mask_pwc_dn, 0.2f, 0.5f);
  ramp(p.mask_coef, 0.25f, 0.1f);
  p.g_enf_coef_noise = 0.9f;
  p.g_enf_coef_voice = 1.15f;
  p.gn_nl_thi1 = 0.15f;
  p.gn_nl_thi2 = 0.6f;
  p.gn_nl_tho1 = 0.1f;
  p.gn_nl_tho2 = 0.7f;
  p.avg_g_thi1 = 0.2f;
  p.avg_g_thi2 = 0.5f;
  p.avg_g_tho1 = 0.1f;
  p.avg_g_tho2 = 0.85f;
  set_slopes(p);
  p.sup_det_gn_th = 0.45f;
  p.sup_det_count_th = 12;
  ramp(p.sup_det_weight, 1.0f, 0.5f);
  p.sup_det_weight_th = 3.2f;
  p.vad_det_gn_th_on = 0.6f;
  ramp(p.vad_det_weight_on, 1.0f, 0.6f);
  p.vad_det_weight_th_on = 11.3f;
  p.vad_det_count_th_on = 3;
  p.vad_det_gn_th_off = 0.4f;
  ramp(p.vad_det_weight_off, 0.8f, 1.0f);
  p.vad_det_weight_th_off = 6.1f;
  p.vad_det_count_th_off = 7;
  p.comp_on = 0;
  p.comp_gain = 1.8f;
  p.comp_pwc_up = 0.9f;
  p.comp_pwc_dn = 0.7f;
  p.comp_clip_th = 250.0f;
  p.comp_clip_gain = 0.3f;
  p.vol = 0.9f;
}

template <typename Block>
void set_counts(Block& block, const CommonHead& head, int dly_frame) {
  block.bypass = 0;
  block.bins = kBins;
  block.fine_nbin = head.syk2.nbin;
  block.coarse_nbin = head.syk1.nbin;
  block.dly_frame = std::uint16_t(dly_frame);
}

/// A record with everything zero: blobs are plain images.
template <typename Blob>
std::unique_ptr<Blob> blank() {
  auto blob = std::make_unique<Blob>();
  std::memset(blob.get(), 0, sizeof(Blob));
  blob->head.hop = kHop;
  blob->head.bins = kBins;
  return blob;
}

inline std::unique_ptr<KeyCancelParam> one_channel(const Bands& bands, int dly_frame) {
  auto blob = blank<KeyCancelParam>();
  set_bands(blob->head, blob->noise, bands);
  set_levels(blob->noise);
  set_counts(blob->ns_nr, blob->head, dly_frame);
  set_gain(blob->ns_nr.common);
  return blob;
}

inline std::unique_ptr<BeamFormingKeyCancelParam> two_beams(const Bands& bands, int dly_frame) {
  auto blob = blank<BeamFormingKeyCancelParam>();
  set_bands(blob->head, blob->noise, bands);
  set_levels(blob->noise);
  NsNrBfBlock& block = blob->ns_nr;
  set_counts(block, blob->head, dly_frame);
  set_gain(block.common);
  block.sources = kBeams;
  block.noise_mix_w[0] = 5.0f;
  block.noise_mix_w[1] = 0.8f;
  ramp(block.g_floor_nn, 0.1f, 0.3f);
  ramp(block.noi_ns_sub_coef_voice, 0.7f, 0.9f);
  ramp(block.noi_ns_sub_coef_noise, 1.0f, 1.2f);
  ramp(block.noi_nn_sub_coef_voice, 0.6f, 0.3f);
  ramp(block.noi_nn_sub_coef_noise, 0.2f, 0.4f);
  ramp(block.sig_nn_sub_coef_voice, 0.3f, 0.5f);
  ramp(block.sig_nn_sub_coef_noise, 0.8f, 0.6f);
  block.nn_mgn_voice = 0.9f;
  block.nn_mgn_noise = 1.4f;
  block.nbin_avg_g_L = 2;
  block.nbin_avg_g_H = std::uint16_t(block.fine_nbin - 3);
  return blob;
}

}  // namespace sonivo::classic::parameters
