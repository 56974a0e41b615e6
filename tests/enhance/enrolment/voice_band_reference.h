#pragma once

#include <vector>

namespace sonivo::test {

/// The filter of a recording whose level is measured, in double: two sections, each
///   y = b0 x + s0,  s0 = a1 y + b1 x + s1,  s1 = a2 y + b2 x
class VoiceBandReference {
 public:
  std::vector<double> process(std::vector<double> x) {
    for (double& sample : x) {
      const double in = sample, mid = 0.05683659 * in + s_[0];
      s_[0] = 0.97040838 * mid - 0.05683659 * in + s_[1];
      s_[1] = 0.0;
      sample = 8.0999937 * mid + s_[2];
      s_[2] = 1.9872345 * sample - 16.1997 * mid + s_[3];
      s_[3] = -0.98752278 * sample + 8.0999937 * mid;
    }
    return x;
  }

 private:
  double s_[4] = {};
};

}  // namespace sonivo::test
