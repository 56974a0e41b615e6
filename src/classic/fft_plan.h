#pragma once

#include <cstddef>

namespace sonivo::classic {

/// A transform goes through a first pass without twiddles, a middle pass (radix 1: none) and two passes of radix 4, so
/// points = first * middle * 16. Its twiddles stand in the order they are read:
/// middle pass, m = p < first, r = 1 to middle - 1: (cos, sin) of -2 pi p r / (first * middle), in 112 places;
/// each of the last passes, that work on runs of s = 4 and s = 1: planes cos, sin for r = 1, 2, 3 with points / 4
/// places i each, of the angle -2 pi (i / s) r / (points / s).
struct FftPlan {
  std::size_t first, middle;
};

constexpr FftPlan fft_plan(std::size_t points) {
  switch (points) {
    case 64:
      return {4, 1};
    case 128:
      return {8, 1};
    case 256:
      return {4, 4};
    case 512:
      return {8, 4};
    default:
      return {8, 8};  // 1024
  }
}

inline constexpr std::size_t kMiddleTwiddles = 112;

}  // namespace sonivo::classic
