#pragma once

// What the transforms compute, in double precision and straight from the formulas.

#include <complex>
#include <cstddef>
#include <vector>

#include "classic/param_blocks.h"

namespace sonivo::classic::reference {

using Signal = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;

/// X[k] = sum over n of x[n] exp(sign j 2 pi k n / N)
Spectrum dft(const Spectrum& x, double sign = -1.0);

/// Windows of the analysis (N entries) and of the synthesis (2 H entries).
Signal analysis_window(std::size_t hop, std::size_t points);
Signal synthesis_window(std::size_t hop, std::size_t points);

/// Spectra of one or two signals; the second of one signal is 0.
class Analysis {
 public:
  Analysis(std::size_t hop, std::size_t points, std::size_t base, std::size_t bins);
  Spectrum one(const Signal& signal);
  std::pair<Spectrum, Spectrum> two(const Signal& first, const Signal& second);

 private:
  Spectrum transform(const Signal& first, const Signal& second);

  std::size_t hop_, points_, base_, bins_;
  Signal window_, first_, second_;  // histories of N - H samples
};

class Synthesis {
 public:
  Synthesis(std::size_t hop, std::size_t points);
  Signal one(const Spectrum& spectrum) { return two(spectrum, Spectrum(spectrum.size())).first; }
  std::pair<Signal, Signal> two(const Spectrum& A, const Spectrum& B);

 private:
  std::size_t hop_, points_;
  Signal window_, first_, second_;  // histories of H samples
};

/// Sections one after the other over the whole signal.
Signal filtered(const std::vector<BiquadCoefficients>& sections, const Signal& signal);

/// y[n] = sum over t of taps[t] x[n - t]
Signal convolved(const Signal& taps, const Signal& x);

}  // namespace sonivo::classic::reference
