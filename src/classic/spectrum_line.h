#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Delay line of whole spectra. A spectrum is written where it will lie and changed there when it comes out, so that
/// none is ever copied.
class SpectrumLine {
 public:
  explicit SpectrumLine(std::size_t delay) : frames_(delay + 1), spectra_(frames_ * kBins) { reset(); }

  void reset() {
    spectra_.assign(spectra_.size(), {0.0f, 0.0f});
    newest_ = 0;
  }
  /// Where the frame's spectrum goes.
  std::span<ComplexFloat, kBins> newest() { return at(newest_); }
  /// Ends the frame: the spectrum that came in `delay` frames ago, the caller's until the next one is written.
  std::span<ComplexFloat, kBins> advance() {
    newest_ = (newest_ + 1) % frames_;
    return at(newest_);
  }

 private:
  std::span<ComplexFloat, kBins> at(std::size_t frame) {
    return std::span(spectra_).subspan(frame * kBins).first<kBins>();
  }

  std::size_t frames_;
  std::size_t newest_;
  std::vector<ComplexFloat> spectra_;
};

}  // namespace sonivo::classic
