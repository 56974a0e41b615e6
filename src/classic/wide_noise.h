#pragma once

#include <cstddef>

#include "classic/fine_bands.h"

namespace sonivo::classic {

/// The wide hump that wind and handling leave at low frequencies: found by its loudness, in three steps, and followed
/// as a falling envelope along frequency.
class WideNoise {
 public:
  WideNoise(const NsNrCommon& param, CoarseBounds bounds);  // both outlive this object

  void reset();
  /// signal_sub: the multiple of the noise level that counts as noise in each fine band.
  void process(const BeamLevels& target, const FineBands& signal_sub);
  /// Multiplies the component.
  void scale(float margin);

  /// Whether the latest frame was not below the lowest threshold.
  bool detected() const { return detected_; }
  /// Fine bands that may hold a wide component, counted from band 0; 0 where no threshold was exceeded.
  std::size_t end() const { return end_; }
  const FineBands& component() const { return W_; }                    ///< W; 0 from end() on
  const FineBands& floor() const { return steps_[step_].g_floor_nw; }  ///< of the latest step found

 private:
  struct Step {
    FineBands g_floor_nw;
    FineBands nw_ns_sub_coef;
  };

  float loudness(std::span<const float> signal) const;
  void follow(std::span<const float> signal);

  const NsNrCommon& param_;
  CoarseBounds bounds_;
  std::array<Step, kWideLevels> steps_;

  bool detected_;
  std::size_t end_;
  std::size_t step_;
  FineBands W_;
};

}  // namespace sonivo::classic
