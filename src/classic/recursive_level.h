#pragma once

#include <array>
#include <span>

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// One frame of a recursive level, band by band from 0 upward: level = c * level + (1 - c) * input, with c = PWCdn
/// while the level is above the input, else PWCup. input and level hold param.nbin values or more; the input may lie on
/// the level, the bands then read what the earlier ones have become.
void follow_level(const PwrBlock& param, const float* input, float* level);

/// Recursive level of a band set.
class RecursiveLevel {
 public:
  explicit RecursiveLevel(const PwrBlock& param) : param_(param) { reset(); }  // param outlives this object

  void reset() {
    level_.fill(0.0f);
    for (int b = 0; b < param_.nbin; ++b) level_[static_cast<std::size_t>(b)] = param_.Pin_init;
  }
  /// One value per band.
  void process(std::span<const float> input) { follow_level(param_, input.data(), level_.data()); }
  /// After the latest frame; places behind the bands are 0.
  std::span<const float> level() const { return level_; }

 private:
  const PwrBlock& param_;
  std::array<float, kMaxBands> level_;
};

}  // namespace sonivo::classic
