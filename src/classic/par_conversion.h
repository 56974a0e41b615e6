#pragma once

#include <cstdint>
#include <optional>

namespace sonivo::classic {

// From the numbers people write to those the chain works with. All in double precision; v is the written number, hop
// the frame hop in samples and fs the sampling rate in Hz.

enum class Unit : std::uint8_t {
  count,                 ///< v without its fraction
  real,                  ///< v
  db_amplitude,          ///< 10^(v / 20) * scale
  db_power,              ///< 10^(v / 10) * scale^2
  ms_samples,            ///< round(v * fs * 0.001)
  ms_frames,             ///< round(v * fs * 0.001 / hop)
  ms_coefficient,        ///< 1 - hop / fs / v * 1000
  db_per_second,         ///< 10^(hop * v / fs / 20), per frame
  db_per_second_less_1,  ///< the same less 1
  ms_decay,              ///< 10^(hop / fs / v * 1000 * -3), -60 dB after v ms
};

enum class Storage : std::uint8_t {
  plain,         ///< as the field's type takes it; integers lose their fraction
  fixed_point,   ///< times 2^fraction_bits, rounded half away from zero, saturated to the field
  shift_code,    ///< of a coefficient near 1, as a count of right shifts
  mirror_shift,  ///< of a coefficient near 0
};

struct Conversion {
  Unit unit = Unit::real;
  double scale = 1.0;
  Storage storage = Storage::plain;
  int fraction_bits = 0;
  double hop = 0.0;
  double fs = 48000.0;
};

/// The value in the unit that the chain works with, before it is stored.
double convert(const Conversion& conversion, double v);

/// Adds 0.5 to values from 0 on, subtracts 0.5 from others and cuts the fraction.
double round_half_away(double value);

struct ShiftCode {
  int shift;
  bool in_range;  ///< false where c is outside of 0..1 or close to no code
};

/// The count n for which c is closest to 1 - 0.5^n (mirrored: to 0.5^n), from 1 to limit - 1; 0 and limit at the ends.
/// limit is 16 for fields of 16 bits and 32 for fields of 32.
ShiftCode shift_code(double c, int limit, bool mirrored);

}  // namespace sonivo::classic
