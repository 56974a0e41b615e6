#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <iterator>
#include <numbers>
#include <vector>

#include "chain_params.h"
#include "chain_signals.h"
#include "classic/biquad_design.h"

/// Parameters and signals under which every stage, and every connection between two, leaves its mark on the output.
namespace sonivo::classic::test {

/// An input filter that nobody misses: +12 dB at the given frequency.
inline AinBlock strong_peak(double hz) {
  const BiquadSpecification wanted{.type = static_cast<int>(BiquadType::peak), .Q = 0.7, .f0 = hz, .gain = 12};
  AinBlock ain{};
  ain.frame = kHop;
  ain.stage_num = 1;
  ain.type[0] = static_cast<std::uint16_t>(wanted.type);
  ain.Q[0] = static_cast<float>(wanted.Q);
  ain.f0[0] = static_cast<float>(wanted.f0);
  ain.gain[0] = static_cast<float>(wanted.gain);
  ain.coefficients[0] = *design_biquad(wanted);
  return ain;
}

/// Trackers that settle within a second; a key stage whose noise, and with it the voice flag, is always heard.
template <class Param>
void enliven(Param& param, double peak_hz) {
  param.head.ain = strong_peak(peak_hz);
  for (NlBlock* nl : {&param.noise.nl_snd, &param.noise.nl_bf}) {
    nl->init_wait = 4;
    nl->update_cycle_noise = 30;
    nl->update_cycle_voice = 60;
  }
  param.noise.nl2_bf.init_wait = 4;
  param.noise.nl2_bf.update_cycle_noise = 20;
  param.noise.nl2_bf.update_cycle_voice = 50;
  param.noise.vds.upc_fb = 2;
  param.noise.vds.dnc_fb = 6;
  param.pulse.nl_pulse.init_wait = 4;
  param.pulse.nl_pulse.update_cycle_noise = 12;
  param.pulse.nl_pulse.update_cycle_voice = 400;
  param.pulse.ngen_f_pulse.init_wait = 10;
  param.pulse.ngen_f_pulse.lvl = 1000.0f;
  std::fill(std::begin(param.pulse.ngen_f_pulse.target_gn), std::end(param.pulse.ngen_f_pulse.target_gn), 1.5f);
}

inline KeyCancelParam lively_key_cancel_params(std::uint16_t id = 21, double peak_hz = 1500) {
  KeyCancelParam param = key_cancel_params(id);
  enliven(param, peak_hz);
  return param;
}

/// Adds a tap to a beam filter.
inline void add_tap(ComplexFloat (&filter)[kPartitions][kBeamBins], std::size_t delay, double gain) {
  const std::size_t partition = delay < kHop ? 1 : 0;  // the later taps stand first
  for (std::size_t k = 0; k < kBeamBins; ++k) {
    const auto turn = static_cast<double>(k * (delay % kHop)) / kBeamFft;
    const auto bin = std::polar(gain, -2 * std::numbers::pi * turn);
    filter[partition][k].re += static_cast<float>(bin.real());
    filter[partition][k].im += static_cast<float>(bin.imag());
  }
}

/// Beams that are no microphone and not each other's; a second beam that takes part in the noise reduction.
inline BeamFormingKeyCancelParam lively_beam_forming_params(std::uint16_t id = 22, double peak_hz = 1500) {
  BeamFormingKeyCancelParam param = beam_forming_params(id);
  enliven(param, peak_hz);
  std::fill_n(&param.filter[0][0][0][0], sizeof param.filter / sizeof(ComplexFloat), ComplexFloat{});
  add_tap(param.filter[0][0], 3, 0.7);
  add_tap(param.filter[0][0], 200, 0.2);
  add_tap(param.filter[0][1], 5, 0.5);
  add_tap(param.filter[1][0], 2, 0.6);
  add_tap(param.filter[1][1], 7, -0.8);
  add_tap(param.filter[1][1], 250, 0.1);
  NsNrBfBlock& reference = param.ns_nr;
  const auto in_all_bands = [](float(&values)[kCoarseBands], float value) {
    std::fill(std::begin(values), std::end(values), value);
  };
  reference.noise_mix_w[1] = 0.8f;
  in_all_bands(reference.g_floor_nn, 0.2f);
  in_all_bands(reference.noi_ns_sub_coef_voice, 0.7f);
  in_all_bands(reference.noi_ns_sub_coef_noise, 1.1f);
  in_all_bands(reference.noi_nn_sub_coef_voice, 0.4f);
  in_all_bands(reference.noi_nn_sub_coef_noise, 0.2f);
  in_all_bands(reference.sig_nn_sub_coef_voice, 0.3f);
  in_all_bands(reference.sig_nn_sub_coef_noise, 0.7f);
  reference.nn_mgn_voice = 0.9f;
  reference.nn_mgn_noise = 1.4f;
  return param;
}

/// Clicks of about 1 ms and phrases of four tones over quiet noise; another seed gives another signal.
inline std::vector<float> clicks_and_phrases(std::size_t samples, std::uint32_t seed = 1) {
  constexpr std::size_t kPhrase = 9600, kClicks = 2900, kClick = 60;
  auto out = noise(samples, seed);
  const auto click = noise(samples, seed + 100);
  const auto phrase = tones(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    out[i] *= 0.05f;
    if ((i + 700 * seed) / kPhrase % 2 == 1) out[i] += 0.3f * phrase[i] * (seed % 2 == 0 ? -0.7f : 1.0f);
    if ((i + 130 * seed) % kClicks < kClick) out[i] += 5.0f * click[i];
  }
  return out;
}

}  // namespace sonivo::classic::test
