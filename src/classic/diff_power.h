#pragma once

#include <span>
#include <vector>

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Sudden jumps of band levels: each level over the loudest of window_len older ones, the latest delay_frame of which
/// are skipped.
///
///   m[k] = max(X[k] from delay_frame + window_len to delay_frame + 1 frames ago);  R[k] = m[k] == 0 ? 0 : X[k] / m[k]
///
/// The cost of a frame is about three passes over the bands, whatever the window: the running maximum has two parts.
/// Rows of the window are filled from 0 upward; each time the window is full, its rows are turned into maxima over
/// themselves and all rows behind them. From then on the rows that are still old stand in window[row], those that are
/// new already in newest.
class DiffPower {
 public:
  explicit DiffPower(const DiffPowerBlock& param);  // param outlives this object

  void reset();  ///< all older levels = 0
  /// X: one level per band, not negative; R: as many ratios.
  void process(std::span<const float> X, std::span<float> R);

 private:
  float* row(std::vector<float>& rows, std::size_t index) const;
  void push(const float* level);

  const DiffPowerBlock& param_;
  std::vector<float> delay_;   ///< delay_frame rows, a ring
  std::vector<float> window_;  ///< window_len rows
  std::vector<float> newest_;  ///< one row
  std::size_t delay_row_;
  std::size_t window_row_;
};

}  // namespace sonivo::classic
