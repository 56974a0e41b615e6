#pragma once

// The trackers and the voice detector in double precision, written as the formulas stand, state by state.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "classic/param_blocks.h"

namespace sonivo::classic::reference {

using Vector = std::vector<double>;

struct Cycle {
  std::int16_t cntA = 0, cntB = 0, cntC = 0;
  bool last_voice = false;

  template <typename Block>
  void end_frame(const Block& param, bool voice, Vector& minA, Vector& minB) {
    const int U = param.update_cycle_noise, V = param.update_cycle_voice;
    const Vector fresh(minA.size(), param.Nin_init);
    if (last_voice != voice) cntA = 0;
    const int cycle = voice ? V : U;
    ++cntA, ++cntB, ++cntC;
    if (cntA == cycle || (cntB > 2 * V && cntC > V)) minA = fresh, cntB = 0;
    if (cntA >= 2 * cycle || (cntC > 2 * V && cntB > V)) minB = fresh, cntA = 0, cntC = 0;
    last_voice = voice;
  }
};

struct NoiseLevelTracker {
  explicit NoiseLevelTracker(const NlBlock& p)
      : param(p), wait(static_cast<std::int16_t>(p.init_wait)), minA(p.nbin, p.Nin_init), minB(minA), level(p.nbin) {}

  void process(const Vector& input, bool voice) {
    if (wait > 0) {
      wait -= 1;
      level.assign(level.size(), param.Nin_init);
      return;
    }
    for (std::size_t k = 0; k < level.size(); ++k) {
      minA[k] = std::min(minA[k], input[k]);
      minB[k] = std::min(minB[k], input[k]);
      level[k] = std::min(minA[k], minB[k]);
    }
    cycle.end_frame(param, voice, minA, minB);
  }

  const NlBlock& param;
  std::int16_t wait;
  Vector minA, minB, level;
  Cycle cycle;
};

struct HarmonicNoiseTracker {
  explicit HarmonicNoiseTracker(const Nl2Block& p)
      : param(p), wait(static_cast<std::int16_t>(p.init_wait)), minA(p.nbin, p.Nin_init), minB(minA), tmp(p.nbin) {}

  void process(const Vector& x, bool voice, Vector& output) {
    if (wait > 0) {
      wait -= 1;
      return;
    }
    const std::size_t b = param.base_freq;
    const double P = param.freq_dh_pwc, A = param.freq_dh_up_coef, D = param.freq_dh_dn_coef;
    for (std::size_t k = 0; k <= b; ++k) tmp[k] = x[k];
    double e = x[b];
    for (std::size_t k = b + 1; k < tmp.size(); ++k) {
      if (e > x[k]) {
        e = x[k] * (1 - P) + P * e;
        tmp[k] = e;
      } else if (e * A > x[k]) {
        tmp[k] = x[k];
      } else {
        e = e * D;
        tmp[k] = e;
      }
    }
    for (std::size_t k = 0; k < tmp.size(); ++k) {
      minA[k] = std::min(minA[k], tmp[k]);
      minB[k] = std::min(minB[k], tmp[k]);
      tmp[k] = std::min(minA[k], minB[k]);
      output[k] = std::max(output[k], tmp[k]);
    }
    cycle.end_frame(param, voice, minA, minB);
  }

  const Nl2Block& param;
  std::int16_t wait;
  Vector minA, minB, tmp;
  Cycle cycle;
};

}  // namespace sonivo::classic::reference
