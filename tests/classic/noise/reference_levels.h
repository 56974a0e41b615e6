#pragma once

#include <algorithm>
#include <cmath>

#include "reference_transform.h"

namespace sonivo::classic::reference {

inline Signal band_level(const BandTable& table, const Spectrum& S) {
  Signal L(table.nbin);
  for (std::size_t b = 0; b < L.size(); ++b) {
    double sum = 1e-10;
    for (std::size_t k = table.f[b]; k < table.f[b + 1]; ++k) sum += std::abs(S[k].real()) + std::abs(S[k].imag());
    L[b] = sum / (table.f[b + 1] - table.f[b]);
  }
  return L;
}

inline double recursive(const PwrBlock& param, double state, double input) {
  const double c = state > input ? param.PWCdn : param.PWCup;
  return c * state + (1.0 - c) * input;
}

/// Two minimum windows and their counters.
template <typename Block>
struct Windows {
  explicit Windows(const Block& block) : param(block), minA(block.nbin, block.Nin_init), minB(minA) {}

  void lower(const Signal& input) {
    for (std::size_t k = 0; k < minA.size(); ++k) {
      minA[k] = std::min(minA[k], input[k]);
      minB[k] = std::min(minB[k], input[k]);
    }
  }

  void count(bool voice) {
    const int U = param.update_cycle_noise, V = param.update_cycle_voice;
    if (last_voice != voice) cntA = 0;
    const int cycle = voice ? V : U;
    ++cntA, ++cntB, ++cntC;
    if (cntA == cycle || (cntB > 2 * V && cntC > V)) {
      minA.assign(minA.size(), param.Nin_init);
      cntB = 0;
    }
    if (cntA >= 2 * cycle || (cntC > 2 * V && cntB > V)) {
      minB.assign(minB.size(), param.Nin_init);
      cntA = cntC = 0;
    }
    last_voice = voice;
  }

  const Block& param;
  Signal minA, minB;
  int wait = param.init_wait, cntA = 0, cntB = 0, cntC = 0;
  bool last_voice = false;
};

class NoiseLevelTracker {
 public:
  explicit NoiseLevelTracker(const NlBlock& param) : level(param.nbin), windows_(param) {}

  void process(const Signal& input, bool voice) {
    if (windows_.wait > 0) {
      --windows_.wait;
      level.assign(level.size(), windows_.param.Nin_init);
      return;
    }
    windows_.lower(input);
    for (std::size_t k = 0; k < level.size(); ++k) level[k] = std::min(windows_.minA[k], windows_.minB[k]);
    windows_.count(voice);
  }

  Signal level;

 private:
  Windows<NlBlock> windows_;
};

class HarmonicNoiseTracker {
 public:
  explicit HarmonicNoiseTracker(const Nl2Block& param) : windows_(param) {}

  void process(const Signal& x, bool voice, Signal& output) {
    if (windows_.wait > 0) {
      --windows_.wait;
      return;
    }
    const Nl2Block& param = windows_.param;
    const double P = param.freq_dh_pwc, A = param.freq_dh_up_coef, D = param.freq_dh_dn_coef;
    Signal tmp = x;
    double e = x[param.base_freq];
    for (std::size_t k = param.base_freq + 1u; k < tmp.size(); ++k) {
      if (e > x[k]) {
        tmp[k] = e = x[k] * (1.0 - P) + P * e;
      } else if (e * A > x[k]) {
        tmp[k] = x[k];
      } else {
        tmp[k] = e = e * D;
      }
    }
    windows_.lower(tmp);
    for (std::size_t k = 0; k < tmp.size(); ++k) {
      output[k] = std::max(output[k], std::min(windows_.minA[k], windows_.minB[k]));
    }
    windows_.count(voice);
  }

 private:
  Windows<Nl2Block> windows_;
};

class VoiceDetector {
 public:
  explicit VoiceDetector(const VdsBlock& param) : param_(param) {}

  /// S: fine bands; L: coarse bands; t: first fine band of each coarse band.
  void process(const double* S, const Signal& L, const std::uint16_t* t) {
    double excess = 0.0, ref = 0.0;
    for (std::size_t b = 0; b < param_.nbin; ++b) {
      const double f = std::max(L[b] * param_.Nef_floor[12], double(param_.Nef_floor[b]));
      for (std::size_t k = t[b]; k < t[b + 1]; ++k) {
        if (S[k] - f > 0.0) excess += (S[k] - f) * param_.vd_w[b];
        ref += f * param_.vd_w[b];
      }
    }
    const bool voiced = excess > ref * param_.th_coef;
    counter_ += voiced ? 1 : -1;
    if (!active) {
      if (counter_ >= param_.upc_fb) {
        counter_ = param_.upc_fb;
        active = true;
      } else if (counter_ < 0) {
        counter_ = 0;
      }
    } else if (voiced) {
      counter_ = param_.dnc_fb;
    } else if (counter_ < 0) {
      active = false;
      counter_ = 0;
    }
  }

  bool active = false;

 private:
  const VdsBlock& param_;
  int counter_ = 0;
};

}  // namespace sonivo::classic::reference
