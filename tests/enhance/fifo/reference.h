#pragma once

// Slow references in double precision, straight from the formulas: kernels by two whole transforms, converters by
// products over the whole signal, the filter in double.

#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <vector>

#include "signals.h"

namespace sonivo::test {

using Complex = std::complex<double>;

/// X[k] = sum over n of x[n] exp(sign j 2 pi n k / N), N a power of two.
inline std::vector<Complex> transform(const std::vector<Complex>& x, double sign) {
  const std::size_t N = x.size();
  if (N == 1) return x;
  std::vector<Complex> even(N / 2), odd(N / 2);
  for (std::size_t n = 0; n < N / 2; ++n) {
    even[n] = x[2 * n];
    odd[n] = x[2 * n + 1];
  }
  even = transform(even, sign);
  odd = transform(odd, sign);
  std::vector<Complex> X(N);
  for (std::size_t k = 0; k < N / 2; ++k) {
    const Complex turned =
        odd[k] * std::polar(1.0, sign * 2 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(N));
    X[k] = even[k] + turned;
    X[k + N / 2] = even[k] - turned;
  }
  return X;
}

/// p[0] to p[15] of the two prototypes.
inline const std::vector<double> kLowPass = {
    0.28,        0.24248166,  0.14934616,   0.046092749,   -0.02434154, -0.045206882,  -0.029261267,   -0.0031649829,
    0.012458203, 0.012833402, 0.0051892097, -0.0014492853, -0.00329783, -0.0019084489, -0.00026829113, 0.00025430342};
inline const std::vector<double> kHighBand = {0.8,           0.18497689,     -0.14459786,    0.090994239,
                                              -0.038866188,  -2.3283847e-17, 0.020370452,    -0.024016595,
                                              0.017308459,   -0.0075581982,  -8.6490625e-18, 0.0034254249,
                                              -0.0034663228, 0.0020059554,   -0.00063411333, -6.3578643e-19};

/// The prototype at 1024 points per tap: 32-point transform, bins 0 to 15 and their mirror images into 32768 points,
/// and back.
inline std::vector<double> fine_grid(const std::vector<double>& p) {
  std::vector<Complex> x(32);
  for (std::size_t n = 0; n < 16; ++n) x[n] = p[n];
  for (std::size_t n = 1; n < 16; ++n) x[32 - n] = p[n];
  const std::vector<Complex> H = transform(x, -1);
  std::vector<Complex> spectrum(32768);
  for (std::size_t k = 0; k < 16; ++k) spectrum[k] = 1024.0 * H[k].real();
  for (std::size_t k = 1; k < 16; ++k) spectrum[32768 - k] = 1024.0 * H[k].real();
  std::vector<double> K;
  for (const Complex& point : transform(spectrum, +1)) K.push_back(point.real() / 32768);
  return K;
}

/// One of the four conversions as its table states it.
struct Conversion {
  const char* name;
  std::size_t in_frame;
  std::size_t out_frame;
  bool down;
  double step;          ///< as stated
  bool float_position;  ///< positions are reckoned in float
};

inline constexpr Conversion k48000To16000{"48000 to 16000", 480, 160, true, 3.0, true};
inline constexpr Conversion k44100To16000{"44100 to 16000", 441, 160, true, 2.75625, false};
inline constexpr Conversion k16000To48000{"16000 to 48000", 160, 480, false, 0.33333334, true};
inline constexpr Conversion k16000To44100{"16000 to 44100", 160, 441, false, 0.3628118, true};

/// Where each output sample of a frame starts in the history, and its 31 taps.
struct Rows {
  std::vector<std::size_t> start;
  std::vector<std::vector<double>> tap;
};

template <class Position>
void add_row(const std::vector<double>& K, Position pos, Rows& rows) {
  const int base = static_cast<int>(pos + static_cast<Position>(0.5));
  const Position d = pos - static_cast<Position>(base) + 15;
  rows.start.push_back(static_cast<std::size_t>(base));
  rows.tap.emplace_back();
  for (int t = 0; t <= 30; ++t) {
    const Position distance = std::abs(d - static_cast<Position>(t));
    rows.tap.back().push_back(K[static_cast<std::size_t>(distance * 1024 + static_cast<Position>(0.5))]);
  }
}

inline Rows rows_of(const Conversion& conversion) {
  static const std::vector<double> low_pass = fine_grid(kLowPass);
  static const std::vector<double> high_band = fine_grid(kHighBand);
  const std::vector<double>& K = conversion.down ? low_pass : high_band;
  Rows rows;
  for (std::size_t i = 0; i < conversion.out_frame; ++i) {
    if (conversion.float_position) {
      add_row(K, static_cast<float>(i) * static_cast<float>(conversion.step), rows);
    } else {
      add_row(K, static_cast<double>(i) * conversion.step, rows);
    }
  }
  return rows;
}

/// The whole signal at once, whole frames of it; silence goes before.
inline std::vector<double> convert(const Conversion& conversion, const std::vector<double>& x) {
  const Rows rows = rows_of(conversion);
  std::vector<double> history(31);
  history.insert(history.end(), x.begin(), x.end());
  std::vector<double> y;
  for (std::size_t frame = 0; (frame + 1) * conversion.in_frame <= x.size(); ++frame) {
    for (std::size_t i = 0; i < conversion.out_frame; ++i) {
      double sum = 0;
      for (std::size_t t = 0; t < 31; ++t) {
        sum += rows.tap[i][t] * history[frame * conversion.in_frame + rows.start[i] + t];
      }
      y.push_back(sum);
    }
  }
  return y;
}

/// The high-pass filter as the difference equation of each section, coefficients as stated.
inline std::vector<double> high_pass(std::vector<double> x) {
  struct Section {
    double b0, b1, b2, a1, a2;
  };
  for (const Section& s : {Section{0.28520438, -0.57037133, 0.28520438, 1.9024411, -0.90729463},
                           Section{3.1321421, -6.2622056, 3.1321421, 1.9855428, -0.98762095}}) {
    std::vector<double> y(x.size());
    const auto at = [](const std::vector<double>& v, std::size_t n, std::size_t back) {
      return n < back ? 0.0 : v[n - back];
    };
    for (std::size_t n = 0; n < x.size(); ++n) {
      y[n] = s.b0 * x[n] + s.b1 * at(x, n, 1) + s.b2 * at(x, n, 2) + s.a1 * at(y, n, 1) + s.a2 * at(y, n, 2);
    }
    x = y;
  }
  return x;
}

/// b0, b1, b2, a1, a2 of a section whose feedback is added.
using SectionNumbers = std::array<double, 5>;

/// Gain of two sections in series at a frequency, from their transfer functions.
inline double gain_of_sections(const SectionNumbers& first, const SectionNumbers& second, double hz, double rate_hz) {
  const Complex z = std::polar(1.0, -2 * std::numbers::pi * hz / rate_hz);
  const auto section = [&](const SectionNumbers& s) {
    return (s[0] + s[1] * z + s[2] * z * z) / (1.0 - s[3] * z - s[4] * z * z);
  };
  return std::abs(section(first) * section(second));
}

/// The same of a filter, measured on the second of two seconds of a sine of amplitude 1.
template <class Filter>
double measured_gain(double hz, int rate_hz) {
  const auto second = static_cast<std::size_t>(rate_hz);
  std::vector<float> x = sine(2 * second, hz, rate_hz);
  Filter filter;
  filter.process(x);
  double power = 0;
  for (std::size_t n = second; n < x.size(); ++n) power += double{x[n]} * double{x[n]};
  return std::sqrt(2 * power / rate_hz);
}

}  // namespace sonivo::test
