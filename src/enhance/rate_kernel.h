#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sonivo {

/// What one rate conversion multiplies with: for each sample of an output frame a row of 31 taps and where in the
/// history it starts. A frame is 10 ms. Constant and shared by all converters.
///
/// A row is a prototype of 31 taps, moved to where its output sample lies between the input samples. It is read off the
/// prototype interpolated to 1024 points per tap. Positions between samples recur, and rows with them.
struct RateKernel {
  static constexpr std::size_t kTaps = 31;
  static constexpr std::size_t kMaxFrame = 480;
  static constexpr std::size_t kMaxRows = 441;

  /// The taps and a 0, for loops over whole vectors.
  struct alignas(64) Row {
    float tap[kTaps + 1];
  };
  struct Phase {
    std::uint16_t row;
    std::uint16_t start;  ///< at most in_frame
  };

  std::size_t in_frame;
  std::size_t out_frame;
  std::array<Phase, kMaxFrame> phase;  ///< out_frame of them
  std::array<Row, kMaxRows> row;

  const Row& row_of(std::size_t i) const { return row[phase[i].row]; }
};

// Built at first use.
const RateKernel& kernel_48000_to_16000();
const RateKernel& kernel_44100_to_16000();
const RateKernel& kernel_16000_to_48000();
const RateKernel& kernel_16000_to_44100();

}  // namespace sonivo
