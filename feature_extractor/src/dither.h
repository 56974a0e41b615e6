#pragma once

#include <cstdint>
#include <vector>

namespace sonivo {

/// Normally distributed noise (Box and Muller) of a generator with numbers of 15 bits that starts alike every time:
/// s = 1664525 s + 1013904223 mod 2^32 from s = 1, r = s / 2^17; n = sqrt(-2 ln u1) cos(2 pi u2), u = (r + 1) / 32769.
class Dither {
 public:
  /// Adds `amount` * n to each sample.
  void add(float amount, std::vector<float>& samples);

 private:
  float uniform();  // in (0, 1)

  std::uint32_t state_ = 1;
};

}  // namespace sonivo
