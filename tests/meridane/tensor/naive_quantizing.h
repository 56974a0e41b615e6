#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "meridane/matrix.h"

// The formulas of 8-bit quantizing, a value at a time.

namespace meridane::naive {

/// To the nearest integer, ties away from zero.
inline float rounded(float x) {
  const float magnitude = std::fabs(x);
  float r = std::nearbyint(magnitude);
  if (magnitude - r == 0.5f) r = r + 1;
  return std::copysign(r, x);
}

struct Line {
  float s = 255;
  std::int32_t r = 0;
  std::int32_t sum = 0;
  std::vector<std::uint8_t> codes;
};

inline Line quantized(const Vector& x) {
  Line line;
  const float m = x.minCoeff(), M = x.maxCoeff();
  if (M != m) {
    line.s = 255 / (M - m);
  } else if (m != 0) {
    line.s = 1 / m;
  }
  line.r = static_cast<std::int32_t>(rounded(line.s * m));
  for (const float value : x) {
    const auto q = static_cast<std::int64_t>(rounded(line.s * value) - static_cast<float>(line.r));
    line.codes.push_back(static_cast<std::uint8_t>(q & 255));
    line.sum += line.codes.back();
  }
  return line;
}

/// One value of the product of a line of weights and a frame, the sum in integers that wrap.
inline float product(const Line& w, const Line& x) {
  std::uint64_t D = 0;
  for (std::size_t k = 0; k < w.codes.size(); ++k) D += std::uint64_t{w.codes[k]} * x.codes[k];
  const auto bits = [](auto value) { return static_cast<std::uint64_t>(static_cast<std::int64_t>(value)); };
  const std::uint64_t N = w.codes.size();
  const std::uint64_t sum = D + bits(x.sum) * bits(w.r) + bits(x.r) * bits(w.sum) + bits(x.r) * N * bits(w.r);
  return static_cast<float>(static_cast<std::int32_t>(static_cast<std::uint32_t>(sum))) / (x.s * w.s);
}

}  // namespace meridane::naive
