// The key stage over 10 ms of audio at 48 kHz: key strokes over noise, frame by frame. Arguments: pulse bands and rows
// of the detector's window. Voice switches now and then.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "classic/key_reduction.h"

namespace {

using namespace sonivo::classic;

constexpr double k10msPerFrame = kHop / 480.0;

template <std::size_t N>
void all(float (&field)[N], float value) {
  std::fill(field, field + N, value);
}

void set_bands(BandTable& table, int bands, int width) {
  table.nbin = static_cast<std::uint16_t>(bands);
  for (int b = 0; b <= bands; ++b) table.f[b] = static_cast<std::uint16_t>(b * width);
  all(table.inv_width, 1.0f / static_cast<float>(width));
}

/// Windows are plain Hann: their shape takes no time.
PulsePath parameters(int bands, int window) {
  PulsePath path{};
  const auto nbin = static_cast<std::uint16_t>(bands);
  path.ana_pulse = {64, 128, {}, 0, 64};
  path.syn_pulse = {64, 128, {}};
  for (int i = 0; i < 128; ++i) {
    const float w = std::sin(3.1415927f * static_cast<float>(i) / 128.0f);
    path.ana_pulse.window[i] = 0.5f * w / std::sqrt(128.0f);
    path.syn_pulse.window[i] = w / std::sqrt(128.0f);
  }
  set_bands(path.syk_pulse, bands, 64 / bands);
  for (std::uint16_t b = 0; b <= 4; ++b) {
    path.nbin_pulse_param_tbl[b] = path.nbin_pulse_param_ui_tbl[b] = static_cast<std::uint16_t>(b * bands / 4);
  }
  path.diff_power = {bands, 3, window};
  path.pulse_sup_delay = {128, 256};
  path.pulse_sup_add_delay = {128, 1280};
  path.pulse_sup_add_gn_th = 0.5f;
  path.pwr_pulse = {nbin, 0, 1.0f, 0.9f, 0.5f};
  path.nl_pulse = {nbin, 10, 300, 600, 1000.0f};
  path.ngen_f_pulse = {64, nbin, 4, 10, 1000.0f, {}, {}, {}};
  all(path.ngen_f_pulse.target_gn, 0.5f);
  all(path.ngen_f_pulse.eq, 1.0f);
  all(path.ngen_f_pulse.min_nl, 0.1f);

  PulseSupBlock& sup = path.pulse_sup;
  sup.pulse_nbin = nbin;
  sup.prm_nbin = sup.ui_nbin = 4;
  all(sup.g_floor, 0.1f);
  all(sup.pwc_g_up, 0.7f);
  all(sup.pwc_g_up_tail, 0.9f);
  all(sup.pwc_g_up_tail_th, 0.7f);
  all(sup.pwc_g_dn, 0.1f);
  all(sup.min_diff_p, 1.8f);
  all(sup.min_npm_det, 5.0f);
  sup.min_diff_p2max_diff_p = sup.min_npm_det2max_npm_det = 2.0f;
  sup.pwc_g_up2pwc_in_up = sup.pwc_g_dn2pwc_in_dn = 1.2f;
  all(sup.sig_np_sub_coef_voice, 0.8f);
  all(sup.sig_np_sub_coef_noise, 1.0f);
  all(sup.np_mgn_voice, 1.1f);
  all(sup.np_mgn_noise, 1.3f);
  all(sup.pwc_np_dn, 0.6f);
  all(sup.pwc_npm_dn, 0.5f);
  all(sup.mask_pwc_up, 0.5f);
  all(sup.mask_pwc_dn, 0.3f);
  all(sup.mask_coef, 0.1f);
  sup.g_enf_coef_noise = sup.g_enf_coef_voice = 1.1f;
  sup.avg_g_thi1 = 0.3f;
  sup.avg_g_thi2 = 0.7f;
  sup.avg_g_tho1 = 0.1f;
  sup.avg_g_tho2 = 0.8f;
  sup.avg_g_slope[0] = 0.1f / 0.3f;
  sup.avg_g_slope[1] = 0.7f / 0.4f;
  sup.avg_g_slope[2] = 0.2f / 0.3f;
  sup.sup_det_gn_th = 0.3f;
  sup.sup_det_fnum_th = 4;
  sup.sup_det_count_th = 100;
  sup.npm_num = 3;
  for (std::uint16_t i = 0; i < kNpmGroups; ++i) {
    sup.npm_band_num[i] = 3;
    for (std::uint16_t j = 0; j < kNpmGroups; ++j) sup.npm_band[i][j] = static_cast<std::uint16_t>(3 * i + j);
    sup.det_keep_npm_num[i] = 6;
  }
  std::fill(std::begin(sup.det_keep_num), std::end(sup.det_keep_num), std::uint16_t{6});
  return path;
}

std::vector<float> strokes(std::size_t frames, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0f, 1.0f);
  std::vector<float> x(frames * kHop);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = normal(random) * (i % 7200 < 200 ? 5000.0f : 100.0f);
  return x;
}

template <std::size_t Beams>
void KeyStage(benchmark::State& state) {
  constexpr std::size_t kFrames = 250;
  const PulsePath path = parameters(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  KeyReduction<Beams> stage(path);
  std::array<std::vector<float>, Beams> in, out;
  for (std::size_t i = 0; i < Beams; ++i) {
    in[i] = strokes(kFrames, static_cast<unsigned>(i));
    out[i].resize(in[i].size());
  }
  std::size_t frame = 0;
  for (auto _ : state) {
    std::array<std::span<const float>, Beams> from;
    std::array<std::span<float>, Beams> to;
    for (std::size_t i = 0; i < Beams; ++i) {
      from[i] = std::span(in[i]).subspan(frame * kHop, kHop);
      to[i] = std::span(out[i]).subspan(frame * kHop, kHop);
    }
    stage.process(from, frame / 50 % 2 == 1, to);
    frame = (frame + 1) % kFrames;
  }
  state.counters["per_10ms"] = benchmark::Counter(k10msPerFrame * static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(KeyStage<1>)->Args({16, 10})->Args({32, 30})->Args({60, 250})->Unit(benchmark::kMicrosecond);
BENCHMARK(KeyStage<2>)->Args({16, 10})->Args({32, 30})->Args({60, 250})->Unit(benchmark::kMicrosecond);

}  // namespace
