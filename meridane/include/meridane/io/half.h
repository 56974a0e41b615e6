#pragma once

#include <cstdint>

namespace meridane {

/// IEEE 754 binary16 to single precision, exactly; every kind of NaN becomes the quiet one, 0x7fc00000.
float half_to_float(std::uint16_t half);

/// To the nearest binary16 value, ties to even; beyond the largest to infinity, what is no number to a quiet NaN.
std::uint16_t float_to_half(float value);

}  // namespace meridane
