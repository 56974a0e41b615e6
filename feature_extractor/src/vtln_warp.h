#pragma once

namespace sonivo {

/// Frequencies as a speaker with a vocal tract of another length has them: piecewise linear, as described by L. Lee and
/// R. Rose, "A frequency warping approach to speaker normalization", IEEE Trans. Speech Audio Process. 6, 1998. With
/// the warp factor a, l = vtln-low * max(1, a) and h = vtln-high * min(1, a):
///
///   F(f) = f / a                                        from l to h
///   F(f) = low + (l / a - low) / (l - low) (f - low)      from low to l
///   F(f) = high + (high - h / a) / (high - h) (f - high)  from h to high
///   F(f) = f                                            elsewhere
///
/// so that F is continuous, and neither l, h nor their images leave the range from vtln-low to vtln-high.
struct VtlnWarp {
  double low, high, vtln_low, vtln_high, factor;  ///< in Hz, but for the factor

  double inflection_low() const;
  double inflection_high() const;
  double frequency(double f) const;
  /// The same from mel to mel.
  double mel(double m) const;
};

/// 1127 ln(1 + f / 700)
double mel_of(double frequency);
double frequency_of(double mel);

}  // namespace sonivo
