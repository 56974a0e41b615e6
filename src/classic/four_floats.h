#pragma once

#include <cstdint>
#include <cstring>

namespace sonivo::classic {

/// Four floats that are loaded, reckoned with and stored together, on any address.
using FourFloats = float __attribute__((vector_size(16)));
using FourWords = std::int32_t __attribute__((vector_size(16)));

inline FourFloats load_four(const float* x) {
  FourFloats v;
  std::memcpy(&v, x, sizeof v);
  return v;
}

inline void store_four(float* x, FourFloats v) { std::memcpy(x, &v, sizeof v); }

inline FourFloats magnitude(FourFloats v) {
  return reinterpret_cast<FourFloats>(reinterpret_cast<FourWords>(v) & INT32_MAX);
}

inline float sum(FourFloats v) { return (v[0] + v[2]) + (v[1] + v[3]); }

/// v where the mask is -1, 0 where it is 0.
inline FourFloats where(const std::int32_t* mask, FourFloats v) {
  FourWords words;
  std::memcpy(&words, mask, sizeof words);
  return reinterpret_cast<FourFloats>(reinterpret_cast<FourWords>(v) & words);
}

}  // namespace sonivo::classic
