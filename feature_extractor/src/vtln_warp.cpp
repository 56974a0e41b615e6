#include "feature_extractor/vtln_warp.h"

#include <algorithm>
#include <cmath>

namespace sonivo {

double mel_of(double frequency) { return 1127.0 * std::log(1.0 + frequency / 700.0); }

double frequency_of(double mel) { return 700.0 * (std::exp(mel / 1127.0) - 1.0); }

double VtlnWarp::inflection_low() const { return vtln_low * std::max(1.0, factor); }

double VtlnWarp::inflection_high() const { return vtln_high * std::min(1.0, factor); }

double VtlnWarp::frequency(double f) const {
  const double l = inflection_low(), h = inflection_high();
  if (f < low || f > high) return f;
  if (f < l) return low + (l / factor - low) / (l - low) * (f - low);
  if (f <= h) return f / factor;
  return high + (high - h / factor) / (high - h) * (f - high);
}

double VtlnWarp::mel(double m) const { return mel_of(frequency(frequency_of(m))); }

}  // namespace sonivo
