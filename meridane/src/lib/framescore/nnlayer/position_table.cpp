#include "lib/framescore/nnlayer/position_table.h"

#include <cmath>

namespace meridane {

void PositionTable::cover(Eigen::Index rows, Eigen::Index frames, Eigen::Index step) {
  if (ahead_.rows() == rows && ahead_.cols() >= frames) return;
  const Eigen::Index size = step == 0 ? frames : (frames + step - 1) / step * step;
  ahead_.resize(rows, size);
  behind_.resize(rows, size);
  for (Eigen::Index row = 0; row < rows; ++row) {
    const Eigen::Index pair = row - row % 2;  // a sine and a cosine of one frequency
    const double f = std::exp(-static_cast<double>(pair) * (std::log(10000.0) / static_cast<double>(rows)));
    for (Eigen::Index n = 0; n < size; ++n) {
      const double angle = static_cast<double>(n) * f;
      const bool is_sine = row % 2 == 0;
      ahead_(row, n) = static_cast<float>(is_sine ? std::sin(angle) : std::cos(angle));
      behind_(row, n) = is_sine ? -ahead_(row, n) : ahead_(row, n);
    }
  }
}

}  // namespace meridane
