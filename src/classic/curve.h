#pragma once

namespace sonivo::classic {

/// Three straight segments through (0, 0), (thi1, tho1), (thi2, tho2) and (1, 1), with their slopes ready-made.
struct Curve {
  float thi1, thi2, tho1, tho2;
  const float* slope;  ///< three

  float operator()(float x) const {
    if (thi1 > x) return x * slope[0];
    if (thi2 > x) return (x - thi1) * slope[1] + tho1;
    return (x - thi2) * slope[2] + tho2;
  }
};

}  // namespace sonivo::classic
