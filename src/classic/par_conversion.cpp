#include "classic/par_conversion.h"

#include <cmath>

namespace sonivo::classic {

double round_half_away(double value) { return std::trunc(value < 0 ? value - 0.5 : value + 0.5); }

double convert(const Conversion& conversion, double v) {
  const double hop = conversion.hop;
  const double fs = conversion.fs;
  const double scale = conversion.scale;
  switch (conversion.unit) {
    case Unit::count:
      return std::trunc(v);
    case Unit::real:
      return v;
    case Unit::db_amplitude:
      return std::pow(10.0, v / 20) * scale;
    case Unit::db_power:
      return std::pow(10.0, v / 10) * scale * scale;
    case Unit::ms_samples:
      return round_half_away(v * fs * 0.001);
    case Unit::ms_frames:
      return round_half_away(v * fs * 0.001 / hop);
    case Unit::ms_coefficient:
      return 1 - hop / fs / v * 1000;
    case Unit::db_per_second:
      return std::pow(10.0, hop * v / fs / 20);
    case Unit::db_per_second_less_1:
      return std::pow(10.0, hop * v / fs / 20) - 1.0;
    case Unit::ms_decay:
      return std::pow(10.0, hop / fs / v * 1000 * -3);
  }
  return v;
}

ShiftCode shift_code(double c, int limit, bool mirrored) {
  const bool in_range = c >= 0 && c <= 1;
  if (mirrored ? c <= 0 : c >= 1) return {limit, in_range};
  if (mirrored ? c >= 0.75 : c <= 0.25) return {0, in_range};
  for (int n = 1; n < limit; ++n) {
    const double above = (std::ldexp(1.0, 1 - n) + std::ldexp(1.0, -n)) / 2;  // between 0.5^(n - 1) and 0.5^n
    const double below = (std::ldexp(1.0, -1 - n) + std::ldexp(1.0, -n)) / 2;
    if (mirrored ? below <= c && c < above : 1 - above < c && c <= 1 - below) return {n, true};
  }
  return {limit, false};
}

}  // namespace sonivo::classic
