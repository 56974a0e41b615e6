#include "meridane/io/half.h"

#include <bit>

namespace meridane {

float half_to_float(std::uint16_t half) {
  const std::uint32_t sign = (half & 0x8000u) << 16;
  const std::uint32_t exponent = (half >> 10) & 31u;
  const std::uint32_t mantissa = half & 0x3ffu;
  if (exponent == 31) return std::bit_cast<float>(mantissa == 0 ? sign | 0x7f800000u : 0x7fc00000u);
  if (exponent != 0) return std::bit_cast<float>(sign | (exponent + 112) << 23 | mantissa << 13);
  if (mantissa == 0) return std::bit_cast<float>(sign);
  // Subnormal: the highest bit, at position p, gives exponent p - 24, the bits below it the fraction.
  const auto p = static_cast<std::uint32_t>(std::bit_width(mantissa)) - 1;
  const std::uint32_t fraction = mantissa << (23 - p) & 0x7fffffu;
  return std::bit_cast<float>(sign | (p + 127 - 24) << 23 | fraction);
}

std::uint16_t float_to_half(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  const std::uint32_t sign = bits >> 16 & 0x8000u;
  const std::uint32_t magnitude = bits & 0x7fffffffu;
  if (magnitude > 0x7f800000u) return static_cast<std::uint16_t>(sign | 0x7e00u);
  if (magnitude >= 0x47800000u) return static_cast<std::uint16_t>(sign | 0x7c00u);  // 2^16 and more
  if (magnitude < 0x33000000u) return static_cast<std::uint16_t>(sign);             // below 2^-25
  // The mantissa with its leading bit, and how many of its bits fall away; what carries runs on into the exponent.
  const std::uint32_t exponent = magnitude >> 23;
  const bool subnormal = exponent < 113;
  const std::uint32_t mantissa = (magnitude & 0x7fffffu) | 0x800000u;
  const std::uint32_t lost = subnormal ? 126 - exponent : 13;
  const std::uint32_t kept = mantissa >> lost;
  const std::uint32_t rest = mantissa & ((1u << lost) - 1);
  const std::uint32_t tie = 1u << (lost - 1);
  const std::uint32_t up = rest > tie || (rest == tie && (kept & 1u) != 0) ? 1 : 0;
  const std::uint32_t base = subnormal ? 0 : (exponent - 113) << 10;  // kept brings the leading bit itself
  return static_cast<std::uint16_t>(sign | (base + kept + up));
}

}  // namespace meridane
