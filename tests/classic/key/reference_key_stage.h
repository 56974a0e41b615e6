#pragma once

// The whole key stage in double precision: plain sums for the transforms, shifted rows for the history, a queue for
// each delay, one bit at a time for the noise.

#include <cmath>
#include <complex>
#include <deque>
#include <numbers>

#include "reference_suppressor.h"
#include "reference_trackers.h"

namespace sonivo::classic::reference {

using Complex = std::complex<double>;
using Spectrum = std::vector<Complex>;  // 64 bins

/// X[k] = sum over n of x[n] exp(sign j 2 pi k n / 128)
inline Spectrum dft(const Spectrum& x, int sign) {
  static const Spectrum turn = [] {
    Spectrum t(128);
    for (std::size_t i = 0; i < 128; ++i) t[i] = std::polar(1.0, 2 * std::numbers::pi * static_cast<double>(i) / 128);
    return t;
  }();
  Spectrum X(128);
  for (std::size_t k = 0; k < 128; ++k) {
    for (std::size_t n = 0; n < 128; ++n) X[k] += x[n] * (sign > 0 ? turn[k * n % 128] : std::conj(turn[k * n % 128]));
  }
  return X;
}

/// The latest 128 samples of one signal.
struct History {
  std::deque<double> x = std::deque<double>(128, 0.0);

  void push(const Vector& samples) {
    for (const double sample : samples) {
      x.push_back(sample);
      x.pop_front();
    }
  }
};

inline Spectrum analyse(const AnaBlock& param, const History& first, const History* second) {
  Spectrum z(128);
  for (std::size_t i = 0; i < 128; ++i) {
    z[i] = Complex(first.x[i], second != nullptr ? second->x[i] : 0.0) * static_cast<double>(param.window[i]);
  }
  return dft(z, -1);
}

inline Spectrum one_signal(const AnaBlock& param, const History& signal) {
  const Spectrum Z = analyse(param, signal, nullptr);
  Spectrum S(64);
  for (int k = 0; k < param.fnum_out; ++k) {
    S[static_cast<std::size_t>(k)] = 2.0 * Z[static_cast<std::size_t>(param.fnum_base_out + k)];
  }
  return S;
}

inline void two_signals(const AnaBlock& param, const History& first, const History& second, Spectrum& A, Spectrum& B) {
  const Spectrum Z = analyse(param, first, &second);
  A.assign(64, 0.0);
  B.assign(64, 0.0);
  for (int k = 0; k < param.fnum_out; ++k) {
    const std::size_t i = static_cast<std::size_t>(k), m = static_cast<std::size_t>(param.fnum_base_out + k);
    if (k == 0) {
      A[0] = Z[m].real();
      B[0] = Z[m].imag();
      continue;
    }
    const Complex mirror = Z[128 - m];
    A[i] = {Z[m].real() + mirror.real(), Z[m].imag() - mirror.imag()};
    B[i] = {mirror.imag() + Z[m].imag(), mirror.real() - Z[m].real()};
  }
}

struct Synthesis {
  explicit Synthesis(const SynBlock& p) : param(p), hist(64) {}

  /// The second signal is that of j B.
  void process(const Spectrum& A, const Spectrum& B, Vector& first, Vector& second) {
    Spectrum z(128);
    z[0] = A[0] + Complex(0, 1) * B[0];
    for (std::size_t k = 1; k < 64; ++k) {
      z[k] = A[k] + Complex(0, 1) * B[k];
      z[128 - k] = std::conj(A[k]) + Complex(0, 1) * std::conj(B[k]);
    }
    const Spectrum x = dft(z, +1);
    for (std::size_t n = 0; n < 64; ++n) {
      const Complex y =
          hist[n] * static_cast<double>(param.window[64 + n]) + x[n] * static_cast<double>(param.window[n]);
      first[n] = y.real();
      second[n] = y.imag();
      hist[n] = x[64 + n];
    }
  }

  const SynBlock& param;
  Spectrum hist;
};

inline Vector band_level(const BandTable& table, const Spectrum& spectrum) {
  Vector level(table.nbin);
  for (std::size_t b = 0; b < level.size(); ++b) {
    double sum = 1e-10;
    for (std::size_t k = table.f[b]; k < table.f[b + 1]; ++k) {
      sum += std::abs(spectrum[k].real()) + std::abs(spectrum[k].imag());
    }
    level[b] = sum / (table.f[b + 1] - table.f[b]);
  }
  return level;
}

struct DiffPower {
  explicit DiffPower(const DiffPowerBlock& p)
      : window(static_cast<std::size_t>(p.window_len)),
        rows(static_cast<std::size_t>(p.delay_frame + p.window_len), Vector(static_cast<std::size_t>(p.nbin))) {}

  Vector process(const Vector& X) {
    Vector R(X.size());
    for (std::size_t k = 0; k < X.size(); ++k) {
      double m = 0;
      for (std::size_t row = 0; row < window; ++row) m = std::max(m, rows[row][k]);
      R[k] = m == 0 ? 0 : X[k] / m;
    }
    rows.pop_front();
    rows.push_back(X);
    return R;
  }

  std::size_t window;
  std::deque<Vector> rows;
};

struct Delay {
  explicit Delay(const DelayBlock& p) : queue(static_cast<std::size_t>(p.delay), 0.0) {}

  Spectrum process(const Spectrum& in) {
    Spectrum out(in.size());
    for (std::size_t k = 0; k < in.size(); ++k) {
      queue.push_back(in[k].real());
      queue.push_back(in[k].imag());
      const double re = queue[0], im = queue[1];
      out[k] = {re, im};
      queue.erase(queue.begin(), queue.begin() + 2);
    }
    return out;
  }

  std::deque<double> queue;
};

struct PulseNoise {
  explicit PulseNoise(const PulsePath& p) : path(p), param(p.ngen_f_pulse) {}

  double sample() {
    const unsigned s15 = reg >> 15 & 1u, s13 = reg >> 13 & 1u, s2 = reg >> 2 & 1u;
    const unsigned f = (s15 ^ s13) ^ (1u - s2);
    reg = (reg << 1 | f) & 0xffffu;
    return std::trunc(
        std::clamp(f == 1 ? static_cast<double>(param.lvl) : -static_cast<double>(param.lvl), -32768.0, 32767.0));
  }

  Spectrum process(const Vector& g, const Vector& Nl) {
    if (frames < param.init_wait) {
      frames += 1;
      return Spectrum(64);
    }
    Vector samples(64);
    for (double& x : samples) x = sample();
    history.push(samples);
    Spectrum Q = one_signal(path.ana_pulse, history);
    for (std::size_t b = 0; b < param.prm_nbin; ++b) {
      for (std::size_t j = path.nbin_pulse_param_tbl[b]; j < path.nbin_pulse_param_tbl[b + 1]; ++j) {
        const double top_up = std::max(0.0, param.target_gn[b] - g[j]) * Nl[j] * param.eq[b];
        const double a = std::max(static_cast<double>(param.min_nl[j]), top_up) / 1000.0;
        for (std::size_t bin = path.syk_pulse.f[j]; bin < path.syk_pulse.f[j + 1]; ++bin) Q[bin] *= a;
      }
    }
    return Q;
  }

  const PulsePath& path;
  const NgenBlock& param;
  History history;
  unsigned reg = 1;
  int frames = 0;
};

/// One or two beams; the second of one is not looked at.
struct KeyStage {
  KeyStage(const PulsePath& p, std::size_t beam_count)
      : path(p),
        beams(beam_count),
        level(p.pwr_pulse.nbin, p.pwr_pulse.Pin_init),
        noise_level(p.nl_pulse),
        diff_power(p.diff_power),
        suppressor(p),
        delay(2, Delay(p.pulse_sup_delay)),
        add_delay(p.pulse_sup_add_delay),
        noise(p),
        synthesis(p.syn_pulse) {}

  /// 64 samples per beam
  void sub_block(const std::vector<Vector>& in, bool voice, std::vector<Vector>& out) {
    std::vector<Spectrum> D(2, Spectrum(64));
    for (std::size_t i = 0; i < beams; ++i) history[i].push(in[i]);
    if (beams == 1) {
      D[0] = one_signal(path.ana_pulse, history[0]);
    } else {
      two_signals(path.ana_pulse, history[0], history[1], D[0], D[1]);
    }
    const Vector X = band_level(path.syk_pulse, D[0]);
    for (std::size_t k = 0; k < X.size(); ++k) {
      const double c = level[k] > X[k] ? path.pwr_pulse.PWCdn : path.pwr_pulse.PWCup;
      level[k] = c * level[k] + (1 - c) * X[k];
    }
    noise_level.process(level, voice);
    suppressor.process(X, diff_power.process(X));

    Vector G(64);
    for (std::size_t k = 0; k < X.size(); ++k) {
      for (std::size_t bin = path.syk_pulse.f[k]; bin < path.syk_pulse.f[k + 1]; ++bin) G[bin] = suppressor.g[k];
    }
    for (std::size_t i = 0; i < beams; ++i) {
      D[i] = delay[i].process(D[i]);
      for (std::size_t bin = 0; bin < 64; ++bin) D[i][bin] *= G[bin];
    }
    const Spectrum E = add_delay.process(D[0]);
    const Spectrum Q = noise.process(suppressor.g, noise_level.level);
    const double gn_th = path.pulse_sup_add_gn_th;
    for (std::size_t i = 0; i < beams; ++i) {
      for (std::size_t bin = 0; bin < 64; ++bin) {
        if (gn_th > G[bin]) D[i][bin] += (gn_th - G[bin]) * E[bin];
        D[i][bin] += Q[bin];
      }
    }
    Vector unused(64);
    synthesis.process(D[0], D[1], out[0], beams == 2 ? out[1] : unused);
  }

  const PulsePath& path;
  std::size_t beams;
  History history[2];
  Vector level;
  NoiseLevelTracker noise_level;
  DiffPower diff_power;
  Suppressor suppressor;
  std::vector<Delay> delay;
  Delay add_delay;
  PulseNoise noise;
  Synthesis synthesis;
};

}  // namespace sonivo::classic::reference
