#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <vector>

#include "classic/param_blobs.h"

/// The noise stage in double precision, written straight from its formulas.
namespace sonivo::classic::reference {

using Signal = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;

/// exp(j 2 pi k / 1024)
inline std::complex<double> root(std::size_t k) {
  static const Spectrum roots = [] {
    Spectrum w(1024);
    for (std::size_t n = 0; n < w.size(); ++n) w[n] = std::polar(1.0, 2.0 * std::numbers::pi * double(n) / 1024.0);
    return w;
  }();
  return roots[k];
}

/// X[k] = sum over n of x[n] exp(sign j 2 pi k n / N), N a power of two up to 1024; even and odd samples apart.
inline Spectrum dft(const Spectrum& x, double sign) {
  const std::size_t N = x.size();
  if (N == 1) return x;
  Spectrum even(N / 2), odd(N / 2);
  for (std::size_t n = 0; n < N / 2; ++n) {
    even[n] = x[2 * n];
    odd[n] = x[2 * n + 1];
  }
  even = dft(even, sign);
  odd = dft(odd, sign);
  Spectrum X(N);
  for (std::size_t k = 0; k < N / 2; ++k) {
    const auto w = root(1024 / N * k);
    const auto turned = (sign > 0.0 ? w : std::conj(w)) * odd[k];
    X[k] = even[k] + turned;
    X[k + N / 2] = even[k] - turned;
  }
  return X;
}

/// Two real signals in one complex transform; spectra of N / 2 bins, zero where nothing is handed on.
class Analysis {
 public:
  explicit Analysis(const AnaBlock& param) : param_(param), latest_(std::size_t(param.fft)) {}

  void process(const Signal& first, const Signal& second, Spectrum& A, Spectrum& B) {
    latest_.erase(latest_.begin(), latest_.begin() + param_.hop);
    for (std::size_t n = 0; n < first.size(); ++n) latest_.emplace_back(first[n], second[n]);
    const std::size_t N = latest_.size(), b = std::size_t(param_.fnum_base_out);
    Spectrum x(N);
    for (std::size_t n = 0; n < N; ++n) x[n] = latest_[n] * double(param_.window[n]);
    const Spectrum Z = dft(x, -1.0);
    A.assign(N / 2, 0.0);
    B.assign(N / 2, 0.0);
    A[0] = Z[b].real();
    B[0] = Z[b].imag();
    for (std::size_t k = 1; k < std::size_t(param_.fnum_out); ++k) {
      const auto z = Z[b + k], mirror = Z[N - b - k];
      A[k] = {z.real() + mirror.real(), z.imag() - mirror.imag()};
      B[k] = {mirror.imag() + z.imag(), mirror.real() - z.real()};
    }
  }

 private:
  const AnaBlock& param_;
  Spectrum latest_;
};

class Synthesis {
 public:
  explicit Synthesis(const SynBlock& param) : param_(param), hist_(std::size_t(param.hop)) {}

  Signal process(const Spectrum& S) {
    const std::size_t N = std::size_t(param_.fft), H = std::size_t(param_.hop);
    Spectrum X(N);
    for (std::size_t k = 0; k < N / 2; ++k) X[k] = S[k];
    for (std::size_t k = 1; k < N / 2; ++k) X[N - k] = std::conj(S[k]);
    const Spectrum x = dft(X, 1.0);
    Signal out(H);
    for (std::size_t n = 0; n < H; ++n) {
      out[n] = hist_[n] * param_.window[H + n] + x[N - 2 * H + n].real() * param_.window[n];
      hist_[n] = x[N - H + n].real();
    }
    return out;
  }

 private:
  const SynBlock& param_;
  Signal hist_;
};

}  // namespace sonivo::classic::reference
