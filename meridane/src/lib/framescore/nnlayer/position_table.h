#pragma once

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/matrix.h"

namespace meridane {

/// Sinusoidal encodings of distances between frames. Of distance n, ahead (positive) or behind (negative), row 2i is
/// sin(n f) and row 2i + 1 is cos(n f), f = exp(-2i ln(10000) / rows).
class PositionTable {
 public:
  /// Makes sure that all distances of less than `frames` are there. A table that has to grow is made for `frames`
  /// rounded up to a multiple of `step`, or for exactly so many if step is 0.
  void cover(Eigen::Index rows, Eigen::Index frames, Eigen::Index step);

  std::uint64_t bytes() const { return held_bytes(ahead_, behind_); }
  const float* at(Eigen::Index distance) const {
    return distance < 0 ? behind_.col(-distance).data() : ahead_.col(distance).data();
  }

 private:
  Matrix ahead_, behind_;  ///< column n: distance n, distance -n
};

}  // namespace meridane
