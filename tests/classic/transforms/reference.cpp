#include "reference.h"

#include <cmath>
#include <numbers>

namespace sonivo::classic::reference {
namespace {

constexpr double kPi = std::numbers::pi;

double hann(double n, double length) { return 0.5 - 0.5 * std::cos(2.0 * kPi * n / length); }

}  // namespace

Spectrum dft(const Spectrum& x, double sign) {
  const std::size_t N = x.size();
  Spectrum turn(N), X(N);
  for (std::size_t n = 0; n < N; ++n) {
    turn[n] = std::polar(1.0, sign * 2.0 * kPi * static_cast<double>(n) / static_cast<double>(N));
  }
  for (std::size_t k = 0; k < N; ++k) {
    for (std::size_t n = 0; n < N; ++n) X[k] += x[n] * turn[k * n % N];
  }
  return X;
}

Signal analysis_window(std::size_t hop, std::size_t points) {
  const double H = static_cast<double>(hop), N = static_cast<double>(points);
  Signal w;
  for (double i = 0; i < N - H; ++i) w.push_back(0.5 / std::sqrt(N) * std::sqrt(hann(i, 2.0 * (N - H))));
  for (double i = N - H; i < N; ++i) w.push_back(0.5 / std::sqrt(N) * std::sqrt(hann(i - (N - H) + H, 2.0 * H)));
  return w;
}

Signal synthesis_window(std::size_t hop, std::size_t points) {
  const double H = static_cast<double>(hop), N = static_cast<double>(points);
  Signal v{0.0};
  for (double j = 1; j < H; ++j) {
    v.push_back(hann(j, 2.0 * H) / std::sqrt(hann(N - 2.0 * H + j, 2.0 * (N - H))) / std::sqrt(N));
  }
  for (double j = H; j < 2.0 * H; ++j) v.push_back(std::sqrt(hann(j, 2.0 * H)) / std::sqrt(N));
  return v;
}

Analysis::Analysis(std::size_t hop, std::size_t points, std::size_t base, std::size_t bins)
    : hop_(hop),
      points_(points),
      base_(base),
      bins_(bins),
      window_(analysis_window(hop, points)),
      first_(points - hop),
      second_(points - hop) {}

Spectrum Analysis::transform(const Signal& first, const Signal& second) {
  first_.insert(first_.end(), first.begin(), first.end());
  second_.insert(second_.end(), second.begin(), second.end());
  Spectrum z(points_);
  for (std::size_t n = 0; n < points_; ++n) z[n] = {first_[n] * window_[n], second_[n] * window_[n]};
  first_.erase(first_.begin(), first_.begin() + static_cast<std::ptrdiff_t>(hop_));
  second_.erase(second_.begin(), second_.begin() + static_cast<std::ptrdiff_t>(hop_));
  return dft(z);
}

Spectrum Analysis::one(const Signal& signal) {
  const Spectrum Z = transform(signal, Signal(hop_));
  Spectrum S(bins_);
  for (std::size_t k = 0; k < bins_; ++k) S[k] = 2.0 * Z[base_ + k];
  return S;
}

std::pair<Spectrum, Spectrum> Analysis::two(const Signal& first, const Signal& second) {
  const Spectrum Z = transform(first, second);
  Spectrum A(bins_), B(bins_);
  for (std::size_t k = 0; k < bins_; ++k) {
    const std::size_t m = base_ + k;
    if (k == 0) {
      A[k] = Z[m].real();
      B[k] = Z[m].imag();
    } else {
      const std::size_t mirror = points_ - m;
      A[k] = {Z[m].real() + Z[mirror].real(), Z[m].imag() - Z[mirror].imag()};
      B[k] = {Z[mirror].imag() + Z[m].imag(), Z[mirror].real() - Z[m].real()};
    }
  }
  return {A, B};
}

Synthesis::Synthesis(std::size_t hop, std::size_t points)
    : hop_(hop), points_(points), window_(synthesis_window(hop, points)), first_(hop), second_(hop) {}

std::pair<Signal, Signal> Synthesis::two(const Spectrum& A, const Spectrum& B) {
  const std::complex<double> j(0.0, 1.0);
  Spectrum X(points_);
  X[0] = A[0] + j * B[0];
  for (std::size_t k = 1; k < points_ / 2; ++k) {
    X[k] = A[k] + j * B[k];
    X[points_ - k] = std::conj(A[k]) + j * std::conj(B[k]);
  }
  const Spectrum x = dft(X, 1.0);
  Signal first(hop_), second(hop_);
  for (std::size_t n = 0; n < hop_; ++n) {
    const auto newest = x[points_ - 2 * hop_ + n];
    first[n] = first_[n] * window_[hop_ + n] + newest.real() * window_[n];
    second[n] = second_[n] * window_[hop_ + n] + newest.imag() * window_[n];
    first_[n] = x[points_ - hop_ + n].real();
    second_[n] = x[points_ - hop_ + n].imag();
  }
  return {first, second};
}

Signal filtered(const std::vector<BiquadCoefficients>& sections, const Signal& signal) {
  Signal y = signal;
  for (const BiquadCoefficients& c : sections) {
    double s0 = 0.0, s1 = 0.0;
    for (double& sample : y) {
      const double x = sample;
      sample = c.b0 * x + s0;
      s0 = c.minus_a1 * sample + c.b1 * x + s1;
      s1 = c.minus_a2 * sample + c.b2 * x;
    }
  }
  return y;
}

Signal convolved(const Signal& taps, const Signal& x) {
  Signal y(x.size());
  for (std::size_t n = 0; n < x.size(); ++n) {
    for (std::size_t t = 0; t < taps.size() && t <= n; ++t) y[n] += taps[t] * x[n - t];
  }
  return y;
}

}  // namespace sonivo::classic::reference
