#include "key_parameters.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace sonivo::classic::test {

namespace {

constexpr double kPi = std::numbers::pi;

double hann(double i, double length) { return std::sqrt(0.5 - 0.5 * std::cos(2.0 * kPi * i / length)); }

AnaBlock pulse_analysis() {
  AnaBlock ana{};
  const int N = 128, H = 64;
  ana.hop = H;
  ana.fft = N;
  for (int i = 0; i < N; ++i) {
    const double rise = i < N - H ? hann(i, 2.0 * (N - H)) : hann(i - (N - H) + H, 2.0 * H);
    ana.window[i] = static_cast<float>(0.5 / std::sqrt(N) * rise);
  }
  ana.fnum_base_out = 0;
  ana.fnum_out = 64;
  return ana;
}

SynBlock pulse_synthesis() {
  SynBlock syn{};
  const int N = 128, H = 64;
  syn.hop = H;
  syn.fft = N;
  for (int j = 1; j < 2 * H; ++j) {
    const double v =
        j < H ? hann(j, 2.0 * H) * hann(j, 2.0 * H) / hann(N - 2 * H + j, 2.0 * (N - H)) : hann(j, 2.0 * H);
    syn.window[j] = static_cast<float>(v / std::sqrt(N));
  }
  return syn;
}

template <std::size_t N>
void assign(float (&field)[N], std::initializer_list<float> values) {
  std::copy(values.begin(), values.end(), field);
}

template <std::size_t N>
void assign(std::uint16_t (&field)[N], std::initializer_list<std::uint16_t> values) {
  std::copy(values.begin(), values.end(), field);
}

void set_groups(PulseSupBlock& sup, const std::vector<Edges>& groups) {
  sup.npm_num = static_cast<std::uint16_t>(groups.size());
  for (std::size_t i = 0; i < groups.size(); ++i) {
    sup.npm_band_num[i] = static_cast<std::uint16_t>(groups[i].size());
    std::copy(groups[i].begin(), groups[i].end(), sup.npm_band[i]);
  }
}

PulseSupBlock suppressor() {
  PulseSupBlock sup{};
  assign(sup.g_floor, {0.1f, 0.05f, 0.2f, 0.08f, 0.15f});
  assign(sup.pwc_g_up, {0.7f, 0.6f, 0.65f, 0.75f, 0.55f});
  assign(sup.pwc_g_up_tail, {0.9f, 0.85f, 0.92f, 0.8f, 0.88f});
  assign(sup.pwc_g_dn, {0.2f, 0.1f, 0.15f, 0.25f, 0.05f});
  assign(sup.pwc_g_up_tail_th, {0.7f, 0.8f, 0.6f, 0.75f, 0.65f});
  assign(sup.min_diff_p, {1.6f, 1.8f, 2.0f, 1.7f, 1.5f});
  assign(sup.min_npm_det, {8.0f, 5.0f, 3.0f});
  sup.min_diff_p2max_diff_p = 1.9f;
  sup.min_npm_det2max_npm_det = 2.5f;
  sup.pwc_g_up2pwc_in_up = 1.5f;
  sup.pwc_g_dn2pwc_in_dn = 1.2f;
  sup.bypass = 0;
  sup.bins = 64;
  assign(sup.sig_np_sub_coef_voice, {0.8f, 0.7f, 0.9f, 0.75f, 0.85f});
  assign(sup.sig_np_sub_coef_noise, {1.0f, 1.1f, 0.95f, 1.05f, 0.9f});
  assign(sup.np_mgn_voice, {1.1f, 1.2f, 1.05f, 1.15f, 1.25f});
  assign(sup.np_mgn_noise, {1.4f, 1.3f, 1.5f, 1.35f, 1.45f});
  assign(sup.pwc_np_dn, {0.6f, 0.5f, 0.7f, 0.55f, 0.65f});
  assign(sup.pwc_npm_dn, {0.4f, 0.3f, 0.5f, 0.45f, 0.35f});
  assign(sup.mask_pwc_up, {0.5f, 0.4f, 0.6f, 0.45f, 0.55f});
  assign(sup.mask_pwc_dn, {0.3f, 0.2f, 0.35f, 0.25f, 0.4f});
  assign(sup.mask_coef, {0.1f, 0.05f, 0.2f, 0.15f, 0.08f});
  sup.g_enf_coef_noise = 1.1f;
  sup.g_enf_coef_voice = 1.3f;
  sup.avg_g_thi1 = 0.3f;
  sup.avg_g_thi2 = 0.7f;
  sup.avg_g_tho1 = 0.1f;
  sup.avg_g_tho2 = 0.8f;
  assign(sup.avg_g_slope, {0.1f / 0.3f, 0.7f / 0.4f, 0.2f / 0.3f});
  sup.sup_det_gn_th = 0.5f;
  sup.sup_det_fnum_th = 5;
  sup.sup_det_count_th = 6;
  set_groups(sup, {{2, 5, 9}, {3, 12}});
  assign(sup.det_keep_num, {3, 5, 2, 4, 6});
  assign(sup.det_keep_npm_num, {4, 2, 3});
  return sup;
}

NgenBlock noise() {
  NgenBlock ngen{};
  ngen.frame = 64;
  ngen.init_wait = 10;
  ngen.lvl = 1000.7f;
  assign(ngen.target_gn, {0.5f, 0.4f, 0.6f, 0.45f, 0.55f});
  assign(ngen.eq, {1.0f, 0.8f, 1.2f, 0.9f, 1.1f});
  for (int j = 0; j < kMaxBands; ++j) ngen.min_nl[j] = 0.5f + 0.1f * static_cast<float>(j);
  return ngen;
}

/// 4 bins for each of 16 bands.
Edges equal_bands() {
  Edges edges;
  for (int b = 0; b <= 16; ++b) edges.push_back(static_cast<std::uint16_t>(4 * b));
  return edges;
}

/// The bins of groups of pulse bands.
Edges bins_of(const PulsePath& path, const Edges& groups) {
  Edges bins;
  for (const std::uint16_t band : groups) bins.push_back(path.syk_pulse.f[band]);
  return bins;
}

PulsePath few_groupless_bands() {
  PulsePath path = key_parameters();
  set_pulse_bands(path, {1, 2, 3, 5, 8, 12, 18, 26, 38, 55});
  set_prm_bands(path, {0, 4, 9});
  set_ui_bands(path, {1, 2, 3, 4, 6, 8});
  set_groups(path.pulse_sup, {});
  path.pulse_sup.pwc_g_up2pwc_in_up = 0.0f;
  path.pulse_sup.sup_det_fnum_th = 7;
  path.diff_power.delay_frame = 1;
  path.diff_power.window_len = 1;
  path.pulse_sup_delay.delay = 0;
  path.pulse_sup_add_delay.delay = 64;
  path.pulse_sup_add_gn_th = 0.9f;
  path.nl_pulse.init_wait = 20;
  return path;
}

PulsePath many_bands() {
  PulsePath path = key_parameters();
  Edges edges;
  for (std::uint16_t b = 2; b <= 62; ++b) edges.push_back(b);
  set_pulse_bands(path, edges);
  set_prm_bands(path, {5, 10, 20, 30, 40, 50});
  set_ui_bands(path, {0, 15, 33, 60});
  set_groups(path.pulse_sup, {{7, 21, 40}, {}, {58}});
  path.pulse_sup.min_npm_det[1] = 0.5f;
  path.pulse_sup.min_npm_det2max_npm_det = 2.2f;
  path.diff_power.delay_frame = 3;
  path.diff_power.window_len = 33;
  path.pulse_sup_delay.delay = 200;
  path.pulse_sup_add_delay.delay = 0;
  path.ngen_f_pulse.lvl = 50000.0f;
  path.ngen_f_pulse.init_wait = 0;
  return path;
}

PulsePath bypassed() {
  PulsePath path = key_parameters();
  set_groups(path.pulse_sup, {{1, 2}});
  path.pulse_sup.bypass = 1;
  path.pulse_sup_delay.delay = 256;
  path.pulse_sup_add_delay.delay = 128;
  path.pulse_sup_add_gn_th = 1.3f;
  return path;
}

PulsePath shifted_bins() {
  PulsePath path = key_parameters();
  path.ana_pulse.fnum_base_out = 1;
  path.ana_pulse.fnum_out = 60;
  set_groups(path.pulse_sup, {{3, 4, 5}, {6}, {7, 8}});
  path.pulse_sup_delay.delay = 7;
  path.pulse_sup_add_delay.delay = 131;
  path.pulse_sup.mask_coef[1] = 0.6f;
  return path;
}

}  // namespace

BandTable band_table(const Edges& edges) {
  BandTable table{};
  table.nbin = static_cast<std::uint16_t>(edges.size() - 1);
  std::copy(edges.begin(), edges.end(), table.f);
  for (std::size_t b = 0; b < table.nbin; ++b) table.inv_width[b] = 1.0f / static_cast<float>(edges[b + 1] - edges[b]);
  return table;
}

void set_pulse_bands(PulsePath& path, const Edges& edges) {
  path.syk_pulse = band_table(edges);
  const std::uint16_t bands = path.syk_pulse.nbin;
  path.diff_power.nbin = bands;
  path.pulse_sup.pulse_nbin = bands;
  path.pwr_pulse.nbin = bands;
  path.nl_pulse.nbin = bands;
  path.ngen_f_pulse.pulse_nbin = bands;
}

void set_prm_bands(PulsePath& path, const Edges& edges) {
  std::copy(edges.begin(), edges.end(), path.nbin_pulse_param_tbl);
  path.syk_pulse_prm = band_table(bins_of(path, edges));
  path.pulse_sup.prm_nbin = path.ngen_f_pulse.prm_nbin = path.syk_pulse_prm.nbin;
}

void set_ui_bands(PulsePath& path, const Edges& edges) {
  std::copy(edges.begin(), edges.end(), path.nbin_pulse_param_ui_tbl);
  path.syk_pulse_prm_ui = band_table(bins_of(path, edges));
  path.pulse_sup.ui_nbin = path.syk_pulse_prm_ui.nbin;
}

PulsePath key_parameters() {
  PulsePath path{};
  path.hop = 64;
  path.bins = 64;
  path.ana_pulse = pulse_analysis();
  path.syn_pulse = pulse_synthesis();
  path.diff_power = {0, 2, 8};
  path.pulse_sup = suppressor();
  path.pulse_sup_delay = {128, 128};
  path.pulse_sup_add_delay = {128, 256};
  path.pulse_sup_add_gn_th = 0.6f;
  path.pwr_pulse = {0, 0, 100.0f, 0.8f, 0.4f};
  path.nl_pulse = {0, 0, 40, 90, 2000.0f};
  path.ngen_f_pulse = noise();
  set_pulse_bands(path, equal_bands());
  set_prm_bands(path, {0, 4, 10, 16});
  set_ui_bands(path, {0, 7, 16});
  return path;
}

std::vector<KeySet> key_sets() {
  return {{"Plain", key_parameters()},
          {"FewGrouplessBands", few_groupless_bands()},
          {"ManyBands", many_bands()},
          {"Bypassed", bypassed()},
          {"ShiftedBins", shifted_bins()}};
}

std::vector<float> white_noise(std::size_t samples, float rms, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0f, rms);
  std::vector<float> x(samples);
  for (float& sample : x) sample = normal(random);
  return x;
}

std::vector<float> sweep(std::size_t samples, float amplitude) {
  std::vector<float> x(samples);
  const double length = static_cast<double>(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    const double n = static_cast<double>(i);
    const double cycles = 0.002 * n + 0.2 * n * n / length;  // from 96 Hz to about 19 kHz
    x[i] = amplitude * static_cast<float>(std::sin(2.0 * kPi * cycles));
  }
  return x;
}

std::vector<float> clicks_over_noise(std::size_t samples, float rms, float click, unsigned seed) {
  std::vector<float> x = white_noise(samples, rms, seed);
  std::mt19937 random(seed + 1);
  std::normal_distribution<float> normal(0.0f, click);
  for (std::size_t start = 3000; start + 100 < samples; start += 2400 + random() % 960) {
    for (std::size_t i = 0; i < 100; ++i) x[start + i] += normal(random);
  }
  return x;
}

}  // namespace sonivo::classic::test
