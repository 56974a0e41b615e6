#pragma once

#include <optional>

#include "classic/param_blocks.h"

namespace sonivo::classic {

enum class BiquadType { pass, low_pass, high_pass, band_pass, notch, peak, low_shelf, high_shelf };

struct BiquadSpecification {
  int type;  ///< of BiquadType
  double Q;
  double f0;    ///< Hz
  double gain;  ///< dB, of peak and shelves
};

/// A second-order section by bilinear transform, for signals of 48 kHz. Nothing for a type that there isn't.
std::optional<BiquadCoefficients> design_biquad(const BiquadSpecification& wanted);

}  // namespace sonivo::classic
